#include "bindings/c/feed.h"

#include <algorithm>

#include "KestovaRecordings/recordcursor.h"
#include "bindings/c/livefeed.h"

namespace binding
{
namespace
{
class tFileFeed final : public iFeed
{
public:
    tFileFeed(const tSource& source, const tSpan& span) : m_cursor(source.filesIn(span), cSuffix), m_stop(source.stop)
    {
        m_cursor.startAt(static_cast<std::uint64_t>(std::max<std::int64_t>(span.startMs, 0)));
    }

    // Files are read without waiting: the deadline is the caller's.
    kestova_result next(tMessage& message, const tDeadline&) override
    {
        if (m_stop->requested())
            return KESTOVA_CANCELLED;
        recordings::tRecordingRecord record{};
        if (!m_cursor.next(record))
            return KESTOVA_END;
        message.timeMs = record.timeMs;
        if (const auto package = recordings::viewPackage(record.bytes))
        {
            message.isPackage = true;
            message.package = *package;
            return KESTOVA_OK;
        }
        message.isPackage = false;
        message.package = {};
        message.package.timeMs = record.timeMs;
        message.package.payload = record.bytes;
        return KESTOVA_OK;
    }
    std::uint64_t damaged() const override { return m_cursor.damaged(); }

private:
    recordings::tRecordCursor m_cursor;
    const std::shared_ptr<tStop> m_stop;
};
}  // namespace

tDeadline deadlineIn(int timeoutMs)
{
    if (timeoutMs < 0)
        return std::nullopt;
    return tClock::now() + std::chrono::milliseconds(timeoutMs);
}

std::unique_ptr<iFeed> openFeed(const tSource& source, const tSpan& span)
{
    if (source.isLive())
        return std::make_unique<tLiveFeed>(source);
    return std::make_unique<tFileFeed>(source, span);
}
}  // namespace binding
