#include "KestovaStorage/internal/datafile/indexoutput.h"

#include <algorithm>

namespace storage
{
namespace
{
// A write to the page cache is cut by a dying process at page boundaries only.
constexpr std::uint64_t cPageSize = 4096;
}  // namespace

bool tIndexOutput::writeMagic()
{
    const std::uint32_t magic = fileOrder(static_cast<std::uint32_t>(cDataFileHead));
    return m_magicWritten || (m_magicWritten = m_writeAt(&magic, sizeof magic, 0));
}

bool tIndexOutput::append(std::vector<tIndexSlot>& slots, std::size_t count)
{
    slots.resize(count + 1);
    slots[count] = tIndexSlot{};
    if (!publish(slots.front().data(), slots.size() * cIndexSlotSize))
        return false;
    m_head.indexNum += static_cast<std::uint32_t>(count);
    for (std::size_t i = 0; i < count; ++i)
        m_head.segmentMaxLen = std::max(m_head.segmentMaxLen, lengthOf(slots[i]));
    return true;
}

// A reader of an unfinished file stops at the first record without a time, so the bytes behind the first page are
// written first, and then the piece that begins with the first record's time. If a page boundary cuts that time, its
// record is written last and in two steps: its position is wrong until the second is done.
bool tIndexOutput::publish(const unsigned char* bytes, std::size_t len) const
{
    const std::uint64_t pos = cIndexPos + cIndexSlotSize * m_head.indexNum;
    const std::size_t inFirstPage = std::min<std::size_t>(len, cPageSize - pos % cPageSize);
    if (inFirstPage >= sizeof(tNormalIndexTable::tim))
        return (inFirstPage == len || m_writeAt(bytes + inFirstPage, len - inFirstPage, pos + inFirstPage)) &&
               m_writeAt(bytes, inFirstPage, pos);
    return m_writeAt(bytes + cIndexSlotSize, len - cIndexSlotSize, pos + cIndexSlotSize) &&
           m_writeAt(bytes, inFirstPage, pos) &&
           m_writeAt(bytes + inFirstPage, cIndexSlotSize - inFirstPage, pos + inFirstPage);
}

bool tIndexOutput::writeHead() const
{
    const tIndexHead head = fileOrder(m_head);
    return m_writeAt(&head, sizeof head, cIndexHeadPos);
}
}  // namespace storage
