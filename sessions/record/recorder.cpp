#include "sessions/record/recorder.h"

namespace session
{
std::uint64_t tRecorderState::allDiscarded() const
{
    std::uint64_t sum = 0;
    for (const auto& [key, count] : discarded)
        sum += count;
    return sum;
}
}  // namespace session
