#include "KestovaStorage/internal/openrecording.h"

#include <algorithm>
#include <new>
#include <set>
#include <utility>

#include "KestovaStorage/internal/pathutils.h"

namespace storage
{
namespace
{
constexpr std::size_t cMaxOpenFiles = 64;
constexpr std::size_t cMinBufferSize = 64 * 1024;
}  // namespace

void tOpenRecording::open(const std::string& path, const std::string& suffix, const tCancelled& cancelled)
{
    const tPathProperty property = paths::property(path);
    std::set<std::string> found;
    if (property == eFile)
        found.insert(path);
    else if (property == eFolder)
        paths::listFolder(path, found, true, suffix);
    for (const std::string& file : found)
    {
        if (cancelled())
            return;
        addFile(file);
    }
    putInOrder(cancelled);
}

void tOpenRecording::clear()
{
    *this = tOpenRecording();
}

// Segments of Huffman files cannot be decoded by this version: nothing of them is played.
void tOpenRecording::addFile(const std::string& path)
{
    std::unique_ptr<tDataFileReader> reader = tDataFileReader::open(path);
    if (!reader || reader->symbol() != cDataFileHead)
        return;
    reader->closeFile();
    m_files.push_back(std::move(reader));
}

void tOpenRecording::putInOrder(const tCancelled& cancelled)
{
    std::vector<tTimelineFile> indexes;
    for (const auto& file : m_files)
        indexes.push_back({file->index(), file->sorted(), file->longestRun()});
    m_timeline.build(std::move(indexes), cancelled);
}

std::optional<tOpenRecording::tSegment> tOpenRecording::read(const tTimelineSegment& place)
{
    tDataFileReader& file = *m_files[place.file];
    const tNormalIndexTable record = decodeNormal(file.index()[place.record]);
    if (!readBytes(file, record))
        return std::nullopt;
    return tSegment{record.tim, m_buffer.get(), record.len, file.path()};
}

bool tOpenRecording::readBytes(tDataFileReader& file, const tNormalIndexTable& record)
try
{
    if (record.len > m_bufferSize || !m_buffer)
    {
        m_bufferSize = 0;
        m_buffer.reset();
        const std::size_t size = std::max<std::size_t>(record.len, cMinBufferSize);
        m_buffer.reset(new char[size]);
        m_bufferSize = size;
    }
    keepOpen(file);
    return file.read(record.pos, record.len, m_buffer.get());
}
catch (const std::bad_alloc&)
{
    return false;
}

void tOpenRecording::keepOpen(tDataFileReader& file)
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
