// The exception with which work on recordings that cannot be done ends.
#ifndef KESTOVA_RECORDINGS_FAILURE_H
#define KESTOVA_RECORDINGS_FAILURE_H

#include <stdexcept>

namespace tool
{
// The job failed. The text is one line: what, why and, where known, what to do.
class tFailure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};
}  // namespace tool

#endif
