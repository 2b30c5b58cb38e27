#include "KestovaRecordings/internal/blocksums.h"

#include "KestovaRecordings/internal/crc32c.h"
#include "common/byteorder.h"

namespace recordings
{
namespace
{
// Segments that lie back to back are summed up together: of a few hundred bytes a checksum takes three times as long a
// byte. So many of them are still in the cache nearest to the core.
constexpr std::size_t cBytesAtOnce = 16 * 1024;
}  // namespace

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
    if (m_pending.empty() || m_pending.data() + m_pending.size() != segment.data())
    {
        settle();
        m_pending = segment;
    }
    else
        m_pending = {m_pending.data(), m_pending.size() + segment.size()};
    if (m_pending.size() >= cBytesAtOnce)
        settle();
    std::memcpy(m_slots.next(), slot.data(), slot.size());
    le::store(m_fineTimes.next(), us);
    m_hasFineTimes = m_hasFineTimes || us != storage::cNoFineTime;
}

void tBlockSums::settle()
{
    m_payload = crc32c(m_payload, m_pending.data(), m_pending.size());
    m_pending = {};
}

void tBlockSums::endBlock()
{
    settle();
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
