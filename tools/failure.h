// How a command ends, and the exception with which a job that cannot be done ends it.
#ifndef KESTOVA_TOOLS_FAILURE_H
#define KESTOVA_TOOLS_FAILURE_H

#include <stdexcept>

namespace tool
{
enum eExitStatus : int
{
    eDone = 0,
    eFailed = 1,  // the job could not be done; one line on standard error says why
    eUsage = 2,   // the command line is wrong
    eDamaged = 3  // done, but something was lost on the way or damaged in the input
};

// The job failed. The text is one line: what, why and, where known, what to do.
class tFailure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Whoever read the results has closed the pipe: nothing is left to do, and nothing to report.
class tReaderGone : public std::exception
{};
}  // namespace tool

#endif
