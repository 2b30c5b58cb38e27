// The exit statuses, and the exception that ends a command without a report.
#ifndef KESTOVA_TOOLS_SHELL_EXITSTATUS_H
#define KESTOVA_TOOLS_SHELL_EXITSTATUS_H

#include <exception>

namespace tool
{
enum eExitStatus : int
{
    eDone = 0,
    eFailed = 1,  // one line on standard error reports why
    eUsage = 2,   // the command line is wrong
    eDamaged = 3  // done, but data were lost, damaged in the input, or different
};

// Thrown when the reader of the results has closed the pipe. The command ends without an error.
class tReaderGone : public std::exception
{};
}  // namespace tool

#endif
