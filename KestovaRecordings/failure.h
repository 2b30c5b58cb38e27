// The exception with which work on recordings fails.
#ifndef KESTOVA_RECORDINGS_FAILURE_H
#define KESTOVA_RECORDINGS_FAILURE_H

#include <stdexcept>

#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// what() returns one line for the user: what failed, why and, if known, what to do.
class KESTOVA_API tFailure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
    tFailure(const tFailure&) = default;
    tFailure& operator=(const tFailure&) = default;
    ~tFailure() override;
};

// The reader of a pipe that is written to has closed it: nothing is wrong, and nobody waits for more.
class KESTOVA_API tPipeClosed : public tFailure
{
public:
    using tFailure::tFailure;
    tPipeClosed(const tPipeClosed&) = default;
    tPipeClosed& operator=(const tPipeClosed&) = default;
    ~tPipeClosed() override;
};
}  // namespace recordings

#endif
