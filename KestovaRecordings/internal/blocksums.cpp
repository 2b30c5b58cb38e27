#include "KestovaRecordings/internal/blocksums.h"

#include "KestovaRecordings/internal/crc32c.h"
#include "common/byteorder.h"

namespace recordings
{
template <std::size_t cWidth>
unsigned char* tBlockSums::tGathered<cWidth>::next()
{
    if (m_used == m_bytes.size())
    {
        m_sum = sum();
        m_used = 0;
    }
    m_used += cWidth;
    return m_bytes.data() + m_used - cWidth;
}

template <std::size_t cWidth>
std::uint32_t tBlockSums::tGathered<cWidth>::sum() const
{
    return crc32c(m_sum, m_bytes.data(), m_used);
}

template <std::size_t cWidth>
void tBlockSums::tGathered<cWidth>::clear()
{
    m_used = 0;
    m_sum = 0;
}

void tBlockSums::add(const storage::tIndexSlot& slot, std::uint16_t us, std::string_view segment)
{
    const std::uint64_t second = storage::timeOf(slot) / 1000;
    if (m_records != 0 && (second != m_second || m_bytes + segment.size() > cBlockBytes))
        endBlock();
    if (m_records++ == 0)
        m_second = second;
    m_bytes += segment.size();
    m_payload = crc32c(m_payload, segment.data(), segment.size());
    std::memcpy(m_slots.next(), slot.data(), slot.size());
    le::store(m_fineTimes.next(), us);
    m_hasFineTimes = m_hasFineTimes || us != storage::cNoFineTime;
}

void tBlockSums::endBlock()
{
    m_blocks.records.push_back(m_records);
    m_blocks.payloadCrc32c.push_back(m_payload);
    m_blocks.indexCrc32c.push_back(m_slots.sum());
    m_records = m_payload = 0;
    m_bytes = 0;
    m_slots.clear();
}

void tBlockSums::fill(tSheet& sheet) const
{
    sheet.blocks = m_blocks;
    if (m_records != 0)
    {
        sheet.blocks.records.push_back(m_records);
        sheet.blocks.payloadCrc32c.push_back(m_payload);
        sheet.blocks.indexCrc32c.push_back(m_slots.sum());
    }
    sheet.fineCrc32c.reset();
    if (m_hasFineTimes)
        sheet.fineCrc32c = m_fineTimes.sum();
}
}  // namespace recordings
