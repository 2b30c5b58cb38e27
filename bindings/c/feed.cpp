#include "bindings/c/feed.h"

#include <algorithm>

#include "KestovaRecordings/recordcursor.h"
#include "bindings/c/livefeed.h"

namespace binding
{
namespace
{
// Opens files when their time has come: a storage root may hold thousands.
class tFileFeed final : public iFeed
{
public:
    tFileFeed(const tSource& source, const tSpan& span)
        : m_files(source.filesIn(span)), m_startMs(static_cast<std::uint64_t>(std::max<std::int64_t>(span.startMs, 0))),
          m_stop(source.stop)
    {}

    kestova_result next(tMessages& messages, std::size_t most, const tDeadline&) override
    {
        if (m_stop->requested())
            return KESTOVA_CANCELLED;
        m_records.resize(std::max(m_records.size(), most));
        std::size_t count = 0;
        while (!m_cursor || (count = m_cursor->nextRun(m_records.data(), most)) == 0)
            if (!openNext())
                return KESTOVA_END;
        messages.resize(count);
        for (std::size_t i = 0; i < count; ++i)
            view(m_records[i], messages[i]);
        return KESTOVA_OK;
    }
    std::uint64_t damaged() const override { return m_damaged + (m_cursor ? m_cursor->damaged() : 0); }

private:
    static void view(const recordings::tRecordingRecord& record, tMessage& message)
    {
        const auto package = recordings::viewPackage(record.bytes);
        message.timeMs = record.timeMs;
        message.isPackage = package.has_value();
        if (package)
            message.package = *package;
        else
            message.package = {{}, 0, 0, 0, record.timeMs, record.bytes};
    }
    bool openNext()
    {
        m_damaged = damaged();
        m_cursor.reset();
        if (m_next == m_files.size())
            return false;
        m_cursor.emplace(m_files[m_next++], cSuffix);
        m_cursor->startAt(m_startMs);
        return true;
    }

    const std::vector<std::vector<std::string>> m_files;
    const std::uint64_t m_startMs;
    std::size_t m_next = 0;
    std::optional<recordings::tRecordCursor> m_cursor;
    std::vector<recordings::tRecordingRecord> m_records;
    std::uint64_t m_damaged = 0;  // of the cursors before
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
