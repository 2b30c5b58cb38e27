#include "KestovaStorage/internal/playback/openedfiles.h"

#include <algorithm>
#include <set>
#include <utility>

#include "KestovaStorage/internal/datafile/naming.h"
#include "KestovaStorage/internal/datafile/playmark.h"
#include "KestovaStorage/internal/disk/paths.h"

namespace storage
{
namespace
{
constexpr std::size_t cMaxOpenFiles = 64;
constexpr std::size_t cMaxMarks = 256;
constexpr std::size_t cWindow = 256 * 1024;

std::uint64_t firstBitOf(const tSegmentRecord& record)
{
    return record.firstByte * 8 + record.firstBit;
}
}  // namespace

void tOpenedFiles::open(const std::vector<std::string>& opened, const std::string& suffix, const tCancelled& cancelled)
{
    std::set<std::string> found;
    for (const std::string& path : opened)
    {
        const paths::ePathKind kind = paths::kindOf(path);
        if (kind == paths::ePathKind::eFile)
            found.insert(path);
        else if (kind == paths::ePathKind::eFolder)
            paths::listFolder(path, found, true, suffix);
    }
    for (const std::string& file : found)
    {
        if (cancelled())
            return;
        // A file that is gone by now may have been compressed meanwhile.
        if (addFile(file) || paths::exists(file))
            continue;
        const std::string compressed = naming::compressedName(file, suffix);
        if (!found.contains(compressed))
            addFile(compressed);
    }
    putInOrder(cancelled);
}

std::vector<tReplayedFile> tOpenedFiles::files() const
{
    std::vector<tReplayedFile> files;
    for (const tFile& file : m_files)
    {
        const std::size_t count = file.reader->count();
        files.push_back({file.reader->path().c_str(), count == 0 ? 0 : file.reader->slotNumber(count - 1) + 1});
    }
    return files;
}

void tOpenedFiles::clear()
{
    *this = tOpenedFiles();
}

// Returns false if it cannot be read or is no data file.
bool tOpenedFiles::addFile(const std::string& path)
{
    tFile file;
    file.reader = tDataFileReader::openToPlay(path);
    if (!file.reader)
        return false;
    if (!file.reader->sorted())
        keepNumbers(file);
    // An open file stays readable when it is removed, as by a recorder that has compressed it.
    file.open = m_open.size() < cMaxOpenFiles;
    if (file.open)
        m_open.push_back(static_cast<std::uint32_t>(m_files.size()));
    else
        file.reader->closeFile();
    m_files.push_back(std::move(file));
    markFolder(path);
    return true;
}

// The files that follow are not open all the time.
void tOpenedFiles::markFolder(const std::string& path)
{
    std::string folder = path.substr(0, path.rfind('/') + 1);
    if (m_marks.size() < cMaxMarks && !m_marks.contains(folder))
        m_marks.emplace(std::move(folder), markPlayed(path));
}

void tOpenedFiles::keepNumbers(tFile& file)
{
    tDataFileReader& reader = *file.reader;
    file.fineTimes = storage::fineTimesOf(reader);
    if (file.fineTimes->state() != eFineTimesOurs)
        return;
    for (std::size_t i = 0; i < reader.count(); ++i)
    {
        const tSegmentRecord record = reader.record(i);
        file.numbers.push_back({firstBitOf(record), static_cast<std::uint32_t>(reader.slotNumber(i))});
    }
    std::stable_sort(file.numbers.begin(), file.numbers.end());
}

int tOpenedFiles::fineTime(const tTimelineSegment& segment, const tIndexSlot& record)
{
    tFile& file = m_files[segment.file];
    if (!file.fineTimes)
        file.fineTimes = storage::fineTimesOf(*use(segment.file).reader);
    if (file.fineTimes->state() != eFineTimesOurs)
        return -1;
    if (file.numbers.empty())
        return file.fineTimes->at(file.reader->slotNumber(segment.record));
    const std::uint64_t firstBit = firstBitOf(file.reader->form().record(record));
    const auto number = std::lower_bound(file.numbers.begin(), file.numbers.end(), tNumber{firstBit, 0});
    return number != file.numbers.end() && number->firstBit == firstBit ? file.fineTimes->at(number->slot) : -1;
}

void tOpenedFiles::putInOrder(const tCancelled& cancelled)
{
    std::vector<tTimelineFile> indexes;
    for (const tFile& file : m_files)
    {
        tDataFileReader& reader = *file.reader;
        indexes.push_back({reader.index(), reader.sorted(), reader.longestRun(), reader.count(), reader.blockTimes(),
                           reader.lastTime()});
    }
    m_timeline.build(std::move(indexes), cancelled, [this](std::uint32_t file, std::size_t block, tIndexBlock& to) {
        use(file).reader->readBlock(block, to);
    });
}

std::optional<tOpenedFiles::tSegment> tOpenedFiles::read(std::uint32_t file, const tIndexSlot& record)
{
    tFile& from = use(file);
    if (!from.segments)
        from.segments = std::make_unique<tSegmentReader>(cWindow);
    const auto bytes = from.segments->read(*from.reader, from.reader->form().record(record));
    if (!bytes)
        return std::nullopt;
    return tSegment{timeOf(record), bytes->data(), static_cast<std::uint32_t>(bytes->size()), from.reader->path()};
}

// The file gets its descriptor when it is read.
tOpenedFiles::tFile& tOpenedFiles::use(std::uint32_t number)
{
    tFile& file = m_files[number];
    file.lastUse = ++m_uses;
    if (file.open)
        return file;
    if (m_open.size() == cMaxOpenFiles)
        closeLongestUnused();
    file.open = true;
    m_open.push_back(number);
    return file;
}

void tOpenedFiles::closeLongestUnused()
{
    const auto longest = std::min_element(m_open.begin(), m_open.end(), [this](std::uint32_t a, std::uint32_t b) {
        return m_files[a].lastUse < m_files[b].lastUse;
    });
    tFile& file = m_files[*longest];
    file.reader->closeFile();
    file.segments.reset();
    file.open = false;
    *longest = m_open.back();
    m_open.pop_back();
}
}  // namespace storage
