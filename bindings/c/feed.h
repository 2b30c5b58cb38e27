// iFeed: messages one after the other, from data files or from a live group.
//
// Shapes   messages of a file in order of time; of a group in the order of arrival, from the construction on.
// Threads  one at a time.
#ifndef KESTOVA_C_FEED_H
#define KESTOVA_C_FEED_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "KestovaRecordings/packagecontents.h"
#include "bindings/c/kestova.h"
#include "bindings/c/source.h"

namespace binding
{
struct tMessage
{
    std::uint64_t timeMs = 0;
    bool isPackage = true;
    recordings::tPackageContents package{};  // of what is no package `payload` and `timeMs` alone
};
using tMessages = std::vector<tMessage>;

// Until when a call may take; for ever without a value.
using tClock = std::chrono::steady_clock;
using tDeadline = std::optional<tClock::time_point>;
tDeadline deadlineIn(int timeoutMs);

class iFeed
{
public:
    virtual ~iFeed() = default;
    // Sets the next messages, up to `most` of them, which are valid until the next call. Returns OK, with one or more,
    // or END, TIMEOUT or CANCELLED. Only a group waits until the deadline.
    virtual kestova_result next(tMessages& messages, std::size_t most, const tDeadline& deadline) = 0;
    virtual std::uint64_t damaged() const = 0;
};

// Opens the messages from `startMs` on, to some place at or behind the end of the span.
std::unique_ptr<iFeed> openFeed(const tSource& source, const tSpan& span);
}  // namespace binding

#endif
