// How a command ends.
#ifndef KESTOVA_TOOLS_SHELL_EXITSTATUS_H
#define KESTOVA_TOOLS_SHELL_EXITSTATUS_H

#include <exception>

namespace tool
{
enum eExitStatus : int
{
    eDone = 0,
    eFailed = 1,  // the job could not be done; one line on standard error says why
    eUsage = 2,   // the command line is wrong
    eDamaged = 3  // done, but something was lost on the way or damaged in the input
};

// Whoever read the results has closed the pipe: nothing is left to do, and nothing to report.
class tReaderGone : public std::exception
{};
}  // namespace tool

#endif
