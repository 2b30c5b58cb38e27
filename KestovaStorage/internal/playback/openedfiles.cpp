#include "KestovaStorage/internal/playback/openedfiles.h"

#include <algorithm>
#include <set>
#include <utility>

#include "KestovaStorage/internal/disk/paths.h"

namespace storage
{
namespace
{
constexpr std::size_t cMaxOpenFiles = 64;
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
        addFile(file);
    }
    putInOrder(cancelled);
}

void tOpenedFiles::clear()
{
    *this = tOpenedFiles();
}

void tOpenedFiles::addFile(const std::string& path)
{
    std::unique_ptr<tDataFileReader> reader = tDataFileReader::open(path);
    if (!reader)
        return;
    m_files.push_back(std::move(reader));
    // An open file stays readable when it is removed, as by a recorder that has compressed it.
    if (m_openFiles.size() < cMaxOpenFiles)
        m_openFiles.push_back(m_files.back().get());
    else
        m_files.back()->closeFile();
}

void tOpenedFiles::putInOrder(const tCancelled& cancelled)
{
    std::vector<tTimelineFile> indexes;
    for (const auto& file : m_files)
        indexes.push_back({file->index(), file->sorted(), file->longestRun()});
    m_timeline.build(std::move(indexes), cancelled);
}

std::optional<tOpenedFiles::tSegment> tOpenedFiles::read(const tTimelineSegment& place)
{
    tDataFileReader& file = *m_files[place.file];
    keepOpen(file);
    const auto bytes = m_reader->read(file, place.record);
    if (!bytes)
        return std::nullopt;
    return tSegment{timeOf(file.index()[place.record]), bytes->data(), static_cast<std::uint32_t>(bytes->size()),
                    file.path()};
}

void tOpenedFiles::keepOpen(tDataFileReader& file)
{
    if (!m_openFiles.empty() && m_openFiles.back() == &file)
        return;
    const auto place = std::find(m_openFiles.begin(), m_openFiles.end(), &file);
    if (place != m_openFiles.end())
        m_openFiles.erase(place);
    else if (m_openFiles.size() == cMaxOpenFiles)
    {
        m_openFiles.front()->closeFile();
        m_openFiles.pop_front();
    }
    m_openFiles.push_back(&file);
}
}  // namespace storage
