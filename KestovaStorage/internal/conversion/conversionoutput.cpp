#include "KestovaStorage/internal/conversion/conversionoutput.h"

#include <algorithm>
#include <utility>

namespace storage
{
namespace
{
constexpr std::size_t cBuffer = 256 * 1024;  // stays in a core's cache
}  // namespace

char* tConversionOutput::tPayloadOutput::room(std::size_t size)
{
    m_buffer.resize(std::max({m_buffer.size(), m_used + size, cBuffer}));
    return m_buffer.data() + m_used;
}

bool tConversionOutput::tPayloadOutput::flush()
{
    if (!m_out.writeAt(m_buffer.data(), m_used, m_pos))
        return false;
    m_pos += m_used;
    m_used = 0;
    return true;
}

tConversionOutput::tConversionOutput(tOutputFile& out, const tFileForm& form, const tStored& stored)
    : m_form(form), m_stored(stored), m_payload(out, cPayloadPos),
      m_index([&out](const void* data, std::size_t len, std::uint64_t pos) { return out.writeAt(data, len, pos); })
{}

char* tConversionOutput::room(std::size_t size)
{
    if (m_payload.isFull(size) && !flush())
        return nullptr;
    return m_payload.room(size);
}

void tConversionOutput::add(const tSegmentRecord& record, std::size_t size)
{
    m_payload.used(size);
    m_slots.push_back(m_form.slot(record));
}

bool tConversionOutput::finish(std::string_view rest)
{
    m_payload.append(rest);
    if (!m_payload.flush() || !flushIndex() || !m_index.writeHead())
        return false;
    report(m_index.records());
    return true;
}

// The last bits of a segment may be written with the next one: records of the flush before are whole after this one.
bool tConversionOutput::flush()
{
    const std::uint32_t before = m_index.records();
    if (!m_payload.flush() || !flushIndex())
        return false;
    report(before);
    return true;
}

bool tConversionOutput::flushIndex()
{
    const bool flushed = m_slots.empty() || m_index.append(m_slots, m_slots.size());
    m_slots.clear();
    return flushed;
}

void tConversionOutput::report(std::uint32_t records) const
{
    if (m_stored)
        m_stored(records);
}
}  // namespace storage
