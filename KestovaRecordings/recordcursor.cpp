#include "KestovaRecordings/recordcursor.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/datastorageio.h"

namespace recordings
{
namespace
{
// Returns the numbers of a file's records in order of time; none if they are in that order already.
std::vector<std::uint32_t> timeOrder(const storage::tDataFile& file)
{
    std::vector<std::uint32_t> order(file.recordCount());
    std::iota(order.begin(), order.end(), 0u);
    const auto earlier = [&](std::uint32_t a, std::uint32_t b) {
        return file.record(a).timeMs < file.record(b).timeMs;
    };
    if (std::is_sorted(order.begin(), order.end(), earlier))
        return {};
    std::stable_sort(order.begin(), order.end(), earlier);
    return order;
}

// Returns the earliest and the latest time of a file's records.
std::pair<std::uint64_t, std::uint64_t> timesOf(const storage::tDataFile& file)
{
    std::uint64_t first = file.record(0).timeMs, last = first;
    for (std::size_t i = 1; i < file.recordCount(); ++i)
    {
        first = std::min(first, file.record(i).timeMs);
        last = std::max(last, file.record(i).timeMs);
    }
    return {first, last};
}

// A file to be opened when the time of its first record has come.
struct tWaitingFile
{
    std::uint64_t firstMs, lastMs;
    std::size_t number;  // among all files
    std::string path;
};

class tOpenFile
{
public:
    explicit tOpenFile(std::size_t number) : m_number(number) {}
    bool open(const std::string& path, std::string& error)
    {
        if (!m_file.open(path, &error))
            return false;
        m_order = timeOrder(m_file);
        return true;
    }
    std::size_t damaged() const { return m_file.damagedCount(); }
    bool atEnd() const { return m_next == m_file.recordCount(); }
    std::uint64_t timeMs() const { return m_file.record(place()).timeMs; }
    int fineTime() const { return m_file.fineTime(place()); }
    bool view(std::string_view& bytes)
    {
        std::size_t len = 0;
        const char* const segment = m_file.view(place(), len);
        bytes = {segment, segment != nullptr ? len : 0};
        return segment != nullptr;
    }
    void advance() { ++m_next; }
    // Sets records that come before `endMs` and goes on behind them. Returns how many: 0 for those that view() is for.
    std::size_t readRun(tRecordingRecord* records, std::size_t count, std::uint64_t endMs)
    {
        if (!m_order.empty())
            return 0;
        m_run.resize(std::max(m_run.size(), count));
        const std::size_t read = m_file.readRun(m_next, count, m_run.data());
        std::size_t taken = 0;
        for (; taken < read && m_run[taken].timeMs < endMs; ++taken, ++m_next)
            records[taken] = {m_run[taken].timeMs, m_file.fineTime(m_next), {m_run[taken].bytes, m_run[taken].len}};
        return taken;
    }
    // Goes to the first record of this time or later.
    void startAt(std::uint64_t timeMs)
    {
        std::size_t end = m_file.recordCount();
        for (m_next = 0; m_next < end;)
        {
            const std::size_t middle = m_next + (end - m_next) / 2;
            if (m_file.record(m_order.empty() ? middle : m_order[middle]).timeMs < timeMs)
                m_next = middle + 1;
            else
                end = middle;
        }
    }
    bool comesAfter(const tOpenFile& other) const
    {
        return timeMs() != other.timeMs() ? timeMs() > other.timeMs() : m_number > other.m_number;
    }

private:
    std::size_t place() const { return m_order.empty() ? m_next : m_order[m_next]; }

    storage::tDataFile m_file;
    std::vector<std::uint32_t> m_order;
    std::vector<storage::tDataFileSegment> m_run;
    std::size_t m_next = 0;
    const std::size_t m_number;
};
}  // namespace

class tRecordCursor::tPrivate
{
public:
    tPrivate(const std::vector<std::string>& files, std::string suffix) : m_suffix(std::move(suffix))
    {
        for (const std::string& path : files)
            addFile(path);
        std::stable_sort(m_waiting.begin(), m_waiting.end(),
                         [](const tWaitingFile& a, const tWaitingFile& b) { return a.firstMs > b.firstMs; });
    }

    bool next(tRecordingRecord& record)
    {
        m_ended.reset();
        for (;;)
        {
            openDue();
            if (m_open.empty())
                return false;
            if (m_open.front()->timeMs() >= m_endMs)
                return false;
            if (take(record))
                return true;
        }
    }

    // Of one open file alone, as far as no other one begins.
    std::size_t nextRun(tRecordingRecord* records, std::size_t count)
    {
        m_ended.reset();
        openDue();
        if (m_open.size() != 1)
            return next(*records) ? 1 : 0;
        const std::uint64_t endMs = m_waiting.empty() ? m_endMs : std::min(m_endMs, m_waiting.back().firstMs);
        const std::size_t run = m_open.front()->readRun(records, count, endMs);
        if (run == 0)
            return next(*records) ? 1 : 0;
        m_passed += run;
        if (m_open.front()->atEnd())
        {
            m_ended = std::move(m_open.front());
            m_open.clear();
        }
        return run;
    }

    void startAt(std::uint64_t timeMs)
    {
        m_startMs = timeMs;
        std::erase_if(m_waiting, [&](const tWaitingFile& file) { return file.lastMs < timeMs; });
    }

    void endAt(std::uint64_t timeMs) { m_endMs = timeMs; }

    std::vector<tLeftOut> m_leftOut;
    std::size_t m_files = 0;
    std::uint64_t m_records = 0, m_passed = 0, m_damaged = 0;

private:
    std::string presentName(const std::string& path) const
    {
        const std::string compressed = storage::tDataFileConverter::CompressedName(path, m_suffix);
        const bool isCompressed =
            !storage::tDataStorageIO::IsExistPath(path) && storage::tDataStorageIO::IsExistPath(compressed);
        return isCompressed ? compressed : path;
    }

    void addFile(const std::string& given)
    {
        const std::string path = presentName(given);
        storage::tDataFile file;
        std::string error;
        if (!file.open(path, &error))
            return m_leftOut.push_back(recordings::leftOut(path, error, false));
        if (file.recordCount() == 0)
        {
            ++m_files;
            m_damaged += file.damagedCount();
            return;
        }
        if (!isReadable(file))
            return m_leftOut.push_back({path, "none of its records can be read", false});
        m_records += file.recordCount();
        const auto [firstMs, lastMs] = timesOf(file);
        m_waiting.push_back({firstMs, lastMs, m_files++, path});
    }

    // Opens the files that begin before the next record of those that are open.
    void openDue()
    {
        while (!m_waiting.empty() && (m_open.empty() || m_waiting.back().firstMs <= m_open.front()->timeMs()))
        {
            const tWaitingFile due = std::move(m_waiting.back());
            m_waiting.pop_back();
            auto file = std::make_unique<tOpenFile>(due.number);
            std::string error;
            if (!file->open(presentName(due.path), error))
            {
                m_leftOut.push_back(recordings::leftOut(due.path, error, false));  // removed meanwhile
                continue;
            }
            m_damaged += file->damaged();
            file->startAt(m_startMs);
            push(std::move(file));
        }
    }

    bool take(tRecordingRecord& record)
    {
        std::pop_heap(m_open.begin(), m_open.end(), laterFirst);
        std::unique_ptr<tOpenFile> file = std::move(m_open.back());
        m_open.pop_back();
        ++m_passed;
        std::string_view bytes;
        const bool isRead = file->view(bytes);
        record = {file->timeMs(), file->fineTime(), bytes};
        if (!isRead)
            ++m_damaged;
        file->advance();
        push(std::move(file));
        return isRead;
    }

    void push(std::unique_ptr<tOpenFile> file)
    {
        if (file->atEnd())
        {
            m_ended = std::move(file);
            return;
        }
        m_open.push_back(std::move(file));
        std::push_heap(m_open.begin(), m_open.end(), laterFirst);
    }

    static bool laterFirst(const std::unique_ptr<tOpenFile>& a, const std::unique_ptr<tOpenFile>& b)
    {
        return a->comesAfter(*b);
    }

    const std::string m_suffix;
    std::uint64_t m_startMs = 0;
    std::uint64_t m_endMs = UINT64_MAX;
    std::vector<tWaitingFile> m_waiting;             // the earliest last
    std::vector<std::unique_ptr<tOpenFile>> m_open;  // a heap, the file of the earliest record first
    std::unique_ptr<tOpenFile> m_ended;              // holds the bytes of its last record until the next call
};

tRecordCursor::tRecordCursor(const std::vector<std::string>& files, const std::string& suffix)
    : d(std::make_unique<tPrivate>(files, suffix))
{}

tRecordCursor::~tRecordCursor() = default;

void tRecordCursor::startAt(std::uint64_t timeMs)
{
    d->startAt(timeMs);
}

void tRecordCursor::endAt(std::uint64_t timeMs)
{
    d->endAt(timeMs);
}

bool tRecordCursor::next(tRecordingRecord& record)
{
    return d->next(record);
}

std::size_t tRecordCursor::nextRun(tRecordingRecord* records, std::size_t count)
{
    return d->nextRun(records, count);
}

std::size_t tRecordCursor::files() const
{
    return d->m_files;
}

const std::vector<tLeftOut>& tRecordCursor::leftOut() const
{
    return d->m_leftOut;
}

std::uint64_t tRecordCursor::records() const
{
    return d->m_records;
}

std::uint64_t tRecordCursor::passed() const
{
    return d->m_passed;
}

std::uint64_t tRecordCursor::damaged() const
{
    return d->m_damaged;
}
}  // namespace recordings
