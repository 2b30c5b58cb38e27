#include "KestovaStorage/internal/conversion/convertedfile.h"

#include <algorithm>
#include <utility>

namespace storage
{
namespace
{
constexpr std::size_t cBuffer = 1 << 20;
}

char* tConvertedFile::tStream::room(std::size_t size)
{
    m_buffer.resize(std::max({m_buffer.size(), m_used + size, cBuffer}));
    return m_buffer.data() + m_used;
}

bool tConvertedFile::tStream::flush()
{
    if (!m_out.writeAt(m_buffer.data(), m_used, m_pos))
        return false;
    m_pos += m_used;
    m_used = 0;
    return true;
}

char* tConvertedFile::room(std::size_t size)
{
    if (m_payload.isFull(size) && !flush())
        return nullptr;
    return m_payload.room(size);
}

void tConvertedFile::add(const tSegmentRecord& record, std::size_t size)
{
    m_payload.used(size);
    const tIndexSlot slot = slotOf(m_kind, record);
    m_index.append({reinterpret_cast<const char*>(slot.data()), slot.size()});
    ++m_head.indexNum;
    m_head.segmentMaxLen = std::max(m_head.segmentMaxLen, countedLength(m_kind, record));
}

bool tConvertedFile::finish(std::string_view rest)
{
    m_payload.append(rest);
    if (!m_payload.flush() || !m_index.flush() || !writeHead())
        return false;
    report(m_head.indexNum);
    return true;
}

// The last bits of a segment may come with the next one: what was there at the last flush is whole by this one.
bool tConvertedFile::flush()
{
    if (!m_payload.flush() || !m_index.flush())
        return false;
    report(std::exchange(m_flushed, m_head.indexNum));
    return true;
}

bool tConvertedFile::writeHead()
{
    unsigned char bytes[sizeof(tIndexHead)];
    le::store(bytes + offsetof(tIndexHead, indexNum), m_head.indexNum);
    le::store(bytes + offsetof(tIndexHead, segmentMaxLen), m_head.segmentMaxLen);
    return m_out.writeAt(bytes, sizeof bytes, cIndexHeadPos);
}

void tConvertedFile::report(std::uint32_t records) const
{
    if (m_stored)
        m_stored(records);
}
}  // namespace storage
