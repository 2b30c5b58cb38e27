#include "server/filefacts.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <sys/stat.h>
#include <thread>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/recordingcounts.h"
#include "KestovaRecordings/recordinglist.h"
#include "KestovaStorage/companions.h"

namespace server
{
using namespace recordings;

namespace
{
using tSteady = std::chrono::steady_clock;

constexpr std::uint64_t cPieces = 8;
constexpr std::size_t cMostFine = 16, cMostFiles = 20'000, cThreads = 4;
constexpr std::chrono::seconds cLookAgain{2};

std::int64_t changedAt(const std::string& path)
{
    struct stat facts
    {};
    if (::stat(path.c_str(), &facts) != 0)
        return 0;
    return std::int64_t{facts.st_mtim.tv_sec} * 1'000'000'000 + facts.st_mtim.tv_nsec;
}

std::int64_t changedOf(const std::string& dataFile)
{
    return std::max(changedAt(dataFile), changedAt(storage::sheetName(dataFile)));
}

// The rates of a stream in a file, in runs of so many seconds. The file's first and last second are parts.
class tPieces
{
public:
    tPieces(const tPerSecond& seconds, std::uint64_t firstMs, std::uint64_t lastMs, std::uint64_t most)
        : m_seconds(seconds), m_firstMs(firstMs), m_endMs(lastMs + 1)
    {
        const std::uint64_t first = firstMs / 1000, count = lastMs / 1000 - first + 1, runs = std::min(most, count);
        auto at = m_seconds.begin();
        while (at != m_seconds.end() && at->first < first)
            ++at;
        for (std::uint64_t i = 0; i < runs; ++i)
            add(first + count * i / runs, first + count * (i + 1) / runs, at);
    }
    std::vector<tRatePiece> pieces;

private:
    void add(std::uint64_t first, std::uint64_t end, tPerSecond::const_iterator& at)
    {
        const std::uint64_t fromMs = std::max(first * 1000, m_firstMs), toMs = std::min(end * 1000, m_endMs);
        std::uint64_t sum = 0, seen = 0, whole = 0;
        std::uint32_t least = UINT32_MAX, most = 0;
        for (std::uint64_t second = first; second < end; ++second)
        {
            std::uint32_t count = 0;
            if (at != m_seconds.end() && at->first == second)
                count = (at++)->second;
            sum += count;
            ++seen;
            if (second * 1000 < m_firstMs || (second + 1) * 1000 > m_endMs)
                continue;
            ++whole;
            least = std::min(least, count);
            most = std::max(most, count);
        }
        if (toMs <= fromMs || seen == 0)
            return;
        const float mean = static_cast<float>(sum) * 1000.0F / static_cast<float>(toMs - fromMs);
        const bool isKnown = whole != 0;
        pieces.push_back({fromMs, toMs, isKnown ? std::min(static_cast<float>(least), mean) : mean, mean,
                          isKnown ? std::max(static_cast<float>(most), mean) : mean});
    }

    const tPerSecond& m_seconds;
    const std::uint64_t m_firstMs, m_endMs;
};

tSheetStream streamOf(const tStreamKey& key, const tStreamHistory& history, const tFileCounts& counts)
{
    tSheetStream stream;
    stream.key = key;
    stream.messages = history.messages();
    stream.bytes = history.bytes();
    stream.firstMs = history.firstMs();
    stream.lastMs = history.lastMs();
    stream.gaps = history.gaps();
    if (const auto seconds = counts.perSecond.find(key); seconds != counts.perSecond.end())
        stream.perSecond = seconds->second;
    if (const auto missing = counts.missingOnWire.find(key); missing != counts.missingOnWire.end())
        stream.missingOnWire = missing->second;
    return stream;
}

// Returns the sheet of a file or, where it has none, what one would say.
tSheet sheetOf(const std::string& path)
{
    tFoundSheet found = readSheet(path);
    if (found && !found.sheet.notesOnly)
        return std::move(found.sheet);
    tSheet sheet = found ? std::move(found.sheet) : tSheet();
    tCountOptions options;
    options.perSecond = true;
    const tRecordingCounts counts = countRecordings({path}, options, [](const tCountProgress&) { return true; });
    sheet.firstMs = counts.total.firstMs;
    sheet.lastMs = counts.total.lastMs;
    sheet.silences = counts.total.silences;
    for (const tFileCounts& file : counts.files)
        for (const auto& [key, history] : file.streams)
            sheet.streams.push_back(streamOf(key, history, file));
    if (counts.files.size() == 1)
        for (tSheetStream& stream : sheet.streams)
            if (const auto seconds = counts.total.perSecond.find(stream.key);
                stream.perSecond.empty() && seconds != counts.total.perSecond.end())
                stream.perSecond = seconds->second;
    return sheet;
}

// Silences of a slow stream are none: they are its pace.
std::vector<tGap> gapsOf(const tSheetStream& stream)
{
    std::vector<tGap> gaps;
    std::uint64_t without = 0;
    for (const tGap& gap : stream.gaps)
        without += gap.length();
    const std::uint64_t span = stream.lastMs - std::min(stream.firstMs, stream.lastMs);
    const std::uint64_t intervals = std::max<std::uint64_t>(stream.messages, 2) - 1;
    const std::uint64_t mean = (span - std::min(span, without)) / intervals;
    for (const tGap& gap : stream.gaps)
        if (gap.length() >= 3 * mean)
            gaps.push_back(gap);
    return gaps;
}

tFileFactsPtr read(const std::string& path, std::uint64_t size)
{
    auto facts = std::make_shared<tFileFacts>();
    facts->path = path;
    facts->name = std::filesystem::path(path).filename().string();
    facts->sizeBytes = size;
    tSheet sheet = sheetOf(path);
    facts->firstMs = sheet.firstMs;
    facts->lastMs = sheet.lastMs;
    facts->kept = sheet.kept;
    facts->losses = std::move(sheet.losses);
    facts->notes = std::move(sheet.notes);
    facts->silences = std::move(sheet.silences);
    for (tSheetStream& stream : sheet.streams)
    {
        tStreamFacts one{stream.key,    stream.messages,      stream.bytes,   stream.firstMs,
                         stream.lastMs, stream.missingOnWire, gapsOf(stream), {}};
        if (sheet.firstMs != 0)
            one.pieces = tPieces(stream.perSecond, sheet.firstMs, sheet.lastMs, cPieces).pieces;
        facts->streams.push_back(std::move(one));
    }
    return facts;
}
}  // namespace

// A folder changes with each file and each sheet in it, which are written beside and renamed; a file without a sheet
// grows without that.
tFactsCache::tFolder tFactsCache::folder(const std::string& path)
{
    const std::int64_t changed = changedAt(path);
    const auto now = tSteady::now();
    {
        const std::lock_guard lock(m_mutex);
        const auto known = m_folders.find(path);
        if (known != m_folders.end() && known->second.changed == changed && now < known->second.until)
            return known->second;
    }
    tFolder found;
    found.changed = changed;
    found.until = tTime::max();
    for (const tListedFile& file : listDataFiles(path))
    {
        found.files.push_back(file.path);
        found.sizes.push_back(file.sizeBytes);
        if (file.state == eRecordingState::eRecording)
            found.until = now + cLookAgain;
    }
    const std::lock_guard lock(m_mutex);
    return m_folders[path] = std::move(found);
}

tFileFactsPtr tFactsCache::file(const std::string& path, std::uint64_t size)
try
{
    const std::int64_t changed = changedOf(path);
    {
        const std::lock_guard lock(m_mutex);
        if (const auto known = m_files.find(path); known != m_files.end() && known->second.changed == changed)
            return known->second.facts;
    }
    tFileFactsPtr facts = read(path, size);
    const std::lock_guard lock(m_mutex);
    if (m_files.size() >= cMostFiles)
        m_files.clear();
    m_files[path] = {changed, facts};
    return facts;
}
catch (const tFailure&)
{
    return nullptr;  // it was deleted or compressed meanwhile, or cannot be read
}

// Several threads read; far apart from each other at first, so that a part shows the shape of the whole.
tFactsCache::tFolderFacts tFactsCache::of(const std::string& path, tTime deadline)
{
    const tFolder found = folder(path);
    const std::size_t count = found.files.size(), stride = count > 64 ? 61 : 1;
    std::vector<tFileFactsPtr> facts(count);
    std::vector<std::size_t> order;
    for (std::size_t start = 0; start < stride; ++start)
        for (std::size_t i = start; i < count; i += stride)
            order.push_back(i);
    std::atomic<std::size_t> next{0};
    std::atomic<bool> isWhole{true};
    const auto work = [&] {
        for (std::size_t i = next++; i < count; i = next++)
        {
            if (i != 0 && tSteady::now() >= deadline)
            {
                isWhole = false;
                return;
            }
            facts[order[i]] = file(found.files[order[i]], found.sizes[order[i]]);
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t i = 1; i < std::min({cThreads, std::size_t{std::thread::hardware_concurrency()}, count / 16 + 1});
         ++i)
        threads.emplace_back(work);
    work();
    for (std::thread& thread : threads)
        thread.join();
    std::erase(facts, nullptr);
    return {std::move(facts), isWhole};
}

std::shared_ptr<const tFineRates> tFactsCache::fine(const tFileFacts& file)
{
    const std::int64_t changed = changedOf(file.path);
    {
        const std::lock_guard lock(m_mutex);
        const auto known = std::ranges::find_if(
            m_fine, [&](const tFine& one) { return one.path == file.path && one.changed == changed; });
        if (known != m_fine.end())
        {
            m_fine.splice(m_fine.begin(), m_fine, known);
            return m_fine.front().rates;
        }
    }
    auto rates = std::make_shared<tFineRates>();
    const tSheet sheet = sheetOf(file.path);
    for (const tSheetStream& stream : sheet.streams)
        if (sheet.firstMs != 0)
            (*rates)[stream.key] = tPieces(stream.perSecond, sheet.firstMs, sheet.lastMs, UINT64_MAX).pieces;
    const std::lock_guard lock(m_mutex);
    m_fine.push_front({file.path, changed, rates});
    if (m_fine.size() > cMostFine)
        m_fine.pop_back();
    return rates;
}
}  // namespace server
