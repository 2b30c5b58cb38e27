#include "server/recordwalk.h"

#include <algorithm>

#include "KestovaRecordings/recordinglist.h"

namespace server
{
using namespace recordings;

tRecordWalk::tRecordWalk(const std::string& folder) : m_folder(folder)
{
    look();
}

void tRecordWalk::look()
{
    m_parts.clear();
    m_isRecording = false;
    for (const tListedFile& file : listDataFiles(m_folder))
    {
        m_isRecording |= file.state == eRecordingState::eRecording;
        if (file.records == 0 || file.firstMs == 0)
            continue;
        m_parts.push_back({file.path, file.firstMs, file.lastMs});
        m_lastMs = std::max(m_lastMs, file.lastMs);
    }
    std::stable_sort(m_parts.begin(), m_parts.end(),
                     [](const tPart& a, const tPart& b) { return a.firstMs < b.firstMs; });
}

void tRecordWalk::refresh()
{
    const std::string at = file();
    const std::uint64_t firstMs = m_part < m_parts.size() ? m_parts[m_part].firstMs : 0;
    const std::size_t record = m_record, count = m_parts.size();
    look();
    // A file may have been compressed meanwhile, and earlier ones may be gone.
    const auto same = std::ranges::find_if(
        m_parts, [&](const tPart& part) { return part.path == at || (firstMs != 0 && part.firstMs == firstMs); });
    m_opened.clear();
    if (same == m_parts.end())
    {
        m_part = at.empty() ? std::min(count, m_parts.size()) : 0;
        m_record = 0;
        return;
    }
    m_part = static_cast<std::size_t>(same - m_parts.begin());
    m_record = record;
}

bool tRecordWalk::open(std::size_t part)
{
    const std::string& path = m_parts[part].path;
    if (m_opened == path)
        return true;
    m_opened.clear();
    if (!m_file.open(path))
        return false;
    m_opened = path;
    m_isSorted = true;
    for (std::size_t i = 1; i < m_file.recordCount() && m_isSorted; ++i)
        m_isSorted = m_file.record(i - 1).timeMs <= m_file.record(i).timeMs;
    return true;
}

std::string tRecordWalk::fileAt(std::uint64_t ms) const
{
    std::string file;
    for (const tPart& part : m_parts)
        file = part.firstMs <= ms || file.empty() ? part.path : file;
    return file;
}

void tRecordWalk::seek(std::uint64_t ms)
{
    m_part = 0;
    m_record = 0;
    while (m_part < m_parts.size() && m_parts[m_part].lastMs < ms)
        ++m_part;
    if (m_part == m_parts.size() || !open(m_part))
        return;
    std::size_t low = 0, high = m_file.recordCount();
    if (!m_isSorted)
    {
        while (low < high && m_file.record(low).timeMs < ms)
            ++low;
        m_record = low;
        return;
    }
    while (low < high)
    {
        const std::size_t middle = low + (high - low) / 2;
        if (m_file.record(middle).timeMs < ms)
            low = middle + 1;
        else
            high = middle;
    }
    m_record = low;
}

std::optional<std::uint64_t> tRecordWalk::nextMs()
{
    for (; m_part < m_parts.size(); ++m_part, m_record = 0)
        if (open(m_part) && m_record < m_file.recordCount())
            return m_file.record(m_record).timeMs;
        else if (m_part + 1 == m_parts.size())
            break;  // the place stays behind the last record: more may come
    return std::nullopt;
}

bool tRecordWalk::read(std::size_t record, tWalked& walked)
{
    std::size_t size = 0;
    const char* const bytes = m_file.view(record, size);
    if (bytes == nullptr)
        return false;
    walked = {m_file.record(record).timeMs, {bytes, size}};
    return true;
}

bool tRecordWalk::next(tWalked& walked)
{
    while (nextMs())
        if (read(m_record++, walked))
            return true;
    return false;
}

bool tRecordWalk::previous(tWalked& walked)
{
    for (;;)
    {
        while (m_record > 0 && m_part < m_parts.size() && open(m_part))
            if (--m_record < m_file.recordCount() && read(m_record, walked))
                return true;
        if (m_part == 0 || m_parts.empty())
            return false;
        --m_part;
        m_record = open(m_part) ? m_file.recordCount() : 0;
    }
}
}  // namespace server
