// How a command ends.
#ifndef KESTOVA_TOOLS_SHELL_EXITSTATUS_H
#define KESTOVA_TOOLS_SHELL_EXITSTATUS_H

#include <exception>

namespace tool
{
enum eExitStatus : int
{
    eDone = 0,
    eFailed = 1,  // the job failed; one line on standard error reports why
    eUsage = 2,   // the command line is wrong
    eDamaged = 3  // done, but something was lost on the way or damaged in the input
};

// The reader of the results has closed the pipe: nothing is left to do or to report.
class tReaderGone : public std::exception
{};
}  // namespace tool

#endif
