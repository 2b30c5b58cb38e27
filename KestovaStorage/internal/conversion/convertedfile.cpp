#include "KestovaStorage/internal/conversion/convertedfile.h"

#include <algorithm>
#include <utility>

namespace storage
{
namespace
{
constexpr std::size_t cBuffer = 1 << 20;
}  // namespace

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

tConvertedFile::tConvertedFile(tOutputFile& out, const tFileForm& form, const tStored& stored)
    : m_form(form), m_stored(stored), m_payload(out, cPayloadPos),
      m_index([&out](const void* data, std::size_t len, std::uint64_t pos) { return out.writeAt(data, len, pos); })
{}

char* tConvertedFile::room(std::size_t size)
{
    if (m_payload.isFull(size) && !flush())
        return nullptr;
    return m_payload.room(size);
}

void tConvertedFile::add(const tSegmentRecord& record, std::size_t size)
{
    m_payload.used(size);
    m_slots.push_back(m_form.slot(record));
}

bool tConvertedFile::finish(std::string_view rest)
{
    m_payload.append(rest);
    if (!m_payload.flush() || !flushIndex() || !m_index.writeHead())
        return false;
    report(m_index.records());
    return true;
}

// The last bits of a segment may come with the next one: what was there at the last flush is whole by this one.
bool tConvertedFile::flush()
{
    const std::uint32_t before = m_index.records();
    if (!m_payload.flush() || !flushIndex())
        return false;
    report(before);
    return true;
}

bool tConvertedFile::flushIndex()
{
    const bool flushed = m_slots.empty() || m_index.append(m_slots, m_slots.size());
    m_slots.clear();
    return flushed;
}

void tConvertedFile::report(std::uint32_t records) const
{
    if (m_stored)
        m_stored(records);
}
}  // namespace storage
