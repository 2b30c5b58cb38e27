#include "sessions/replay/livesource.h"

#include "KestovaStorage/companions.h"

namespace session
{
// The file may have been compressed before it was opened to be played: both forms have the same records.
void tLiveSource::Begin(const storage::tReplayedFile* files, size_t count)
{
    std::size_t played = 0;
    for (size_t i = 0; i < count; ++i)
        if (storage::sheetName(files[i].path) == storage::sheetName(m_followed))
            played = files[i].records;
    m_cursor.begin(played);
}

bool tLiveSource::Next(storage::tReplaySourceSegment& segment)
{
    recordings::tLiveRecord record;
    const bool found = m_cursor.next(record);
    m_damaged = m_cursor.damaged();
    if (found)
        segment = {record.timeMs, record.fineTime, record.bytes, static_cast<std::uint32_t>(record.len),
                   m_cursor.file().c_str()};
    return found;
}
}  // namespace session
