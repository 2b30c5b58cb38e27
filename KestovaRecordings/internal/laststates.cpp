#include "KestovaRecordings/internal/laststates.h"

#include <algorithm>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "KestovaRecordings/internal/recordstream.h"
#include "KestovaRecordings/internal/sourcesheets.h"
#include "KestovaStorage/datafile.h"
#include "KestovaUtils/streamnames.h"

namespace recordings
{
namespace
{
constexpr std::size_t cStep = 512;  // records that are read forwards, as the disk likes it, between two steps backwards

using tStates = std::map<tStreamKey, tLastState>;

bool isImage(tReadWriteType kind)
{
    return kind == eImageStream || kind == eOriginalImage;
}

// Searches files of which each ends before the one that was searched before it, or at the same time.
class tBackwardSearch
{
public:
    tBackwardSearch(std::uint64_t startMs, const tIncludesStream& includes, const std::function<void()>& goOn)
        : m_startMs(startMs), m_includes(includes), m_goOn(goOn)
    {}

    void search(const tInputFile& input, const std::string& path);
    const tStates& found() const { return m_found; }

private:
    using tKeys = std::set<tStreamKey>;

    bool isState(const tStreamKey& key);
    bool computeIsState(const tStreamKey& key) const;
    // Returns whether no record of the file can be later than the one that was found in another.
    bool isSettled(const tStreamKey& key) const
    {
        const auto known = m_found.find(key);
        return known != m_found.end() && known->second.timeMs >= m_input->lastMs;
    }
    // Returns the streams of the file that are to be found in it; nothing if nobody knows.
    std::optional<tKeys> wanted(const tFoundSheet& sheet, std::uint64_t records);
    void searchStep(storage::tDataFile& file, std::size_t first, std::size_t end, tStates& here);

    const std::uint64_t m_startMs;
    const tIncludesStream& m_includes;
    const std::function<void()>& m_goOn;
    tStates m_found;
    const tInputFile* m_input = nullptr;             // where the search is
    std::map<std::string, std::string> m_addresses;  // of the streams, as its sheet has them
    std::map<tStreamKey, bool> m_isState;            // in that file
};

bool tBackwardSearch::isState(const tStreamKey& key)
{
    const auto [known, isNew] = m_isState.try_emplace(key, false);
    if (isNew)
        known->second = computeIsState(key);
    return known->second;
}

bool tBackwardSearch::computeIsState(const tStreamKey& key) const
{
    if (!key.package || !m_includes(key) || isSettled(key))
        return false;
    if (!isImage(key.kind))
        return true;
    const std::string address = key.address();
    const auto known = std::find_if(m_addresses.begin(), m_addresses.end(),
                                    [&](const auto& stream) { return stream.second == address; });
    return known != m_addresses.end() && !isImage(static_cast<tReadWriteType>(utils::streamKind(known->first)));
}

std::optional<tBackwardSearch::tKeys> tBackwardSearch::wanted(const tFoundSheet& sheet, std::uint64_t records)
{
    if (!coversFile(sheet, records))
        return std::nullopt;
    tKeys keys;
    for (const tSheetStream& stream : sheet.sheet.streams)
        if (stream.messages != 0 && stream.firstMs < m_startMs && isState(stream.key))
            keys.insert(stream.key);
    return keys;
}

void tBackwardSearch::search(const tInputFile& input, const std::string& path)
{
    m_goOn();
    storage::tDataFile file;
    if (!file.open(path))
        return;  // removed meanwhile
    const tFoundSheet sheet = readSheet(path);
    m_input = &input;
    m_addresses = sheet.sheet.radarAddresses;
    m_isState.clear();
    const std::optional<tKeys> keys = wanted(sheet, file.recordCount());
    tStates here;
    const auto isComplete = [&] {
        return keys && std::all_of(keys->begin(), keys->end(), [&](const tStreamKey& key) { return here.count(key); });
    };
    for (std::size_t end = file.recordCount(); end > 0 && !isComplete(); m_goOn())
    {
        const std::size_t first = end > cStep ? end - cStep : 0;
        searchStep(file, first, end, here);
        end = first;
    }
    for (const auto& [key, state] : here)
        if (const auto [known, isNew] = m_found.try_emplace(key, state); !isNew && known->second.timeMs <= state.timeMs)
            known->second = state;
}

void tBackwardSearch::searchStep(storage::tDataFile& file, std::size_t first, std::size_t end, tStates& here)
{
    tStates latest;
    for (std::size_t i = first; i < end; ++i)
    {
        const std::uint64_t timeMs = file.record(i).timeMs;
        if (timeMs >= m_startMs)
            continue;
        const auto key = streamOf(file, i);
        if (key && isState(*key))
            latest.insert_or_assign(*key, tLastState{m_input, i, timeMs});
    }
    here.merge(latest);
}
}  // namespace

std::vector<tLastState> lastStates(const tInputFiles& inputs, std::uint64_t startMs, const tIncludesStream& includes,
                                   const std::function<void()>& goOn)
{
    std::vector<const tInputFile*> files;
    for (const tInputFile& file : inputs.files)
        if (file.firstMs < startMs)
            files.push_back(&file);
    std::stable_sort(files.rbegin(), files.rend(),
                     [](const tInputFile* a, const tInputFile* b) { return a->lastMs < b->lastMs; });
    tBackwardSearch search(startMs, includes, goOn);
    for (const tInputFile* const file : files)
        search.search(*file, presentPath(file->path, inputs.suffix));
    std::vector<tLastState> sorted;
    for (const auto& [key, state] : search.found())
        sorted.push_back(state);
    std::sort(sorted.begin(), sorted.end(), [](const tLastState& a, const tLastState& b) {
        return std::tie(a.timeMs, a.input, a.record) < std::tie(b.timeMs, b.input, b.record);
    });
    return sorted;
}
}  // namespace recordings
