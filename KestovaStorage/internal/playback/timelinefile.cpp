#include "KestovaStorage/internal/playback/timelinefile.h"

#include <algorithm>

namespace storage
{
namespace
{
std::size_t firstNotBeforeIn(std::span<const tIndexSlot> slots, std::uint64_t time)
{
    const auto place = std::partition_point(slots.begin(), slots.end(),
                                            [time](const tIndexSlot& slot) { return timeOf(slot) < time; });
    return static_cast<std::size_t>(place - slots.begin());
}
}  // namespace

std::size_t tTimelineRecords::firstNotBefore(std::uint32_t file, std::uint64_t time)
{
    const tTimelineFile& one = m_files[file];
    if (!one.inBlocks())
        return firstNotBeforeIn(one.index, time);
    const auto later = std::lower_bound(one.blockTimes.begin(), one.blockTimes.end(), time);
    if (later == one.blockTimes.begin())
        return 0;
    const auto before = static_cast<std::size_t>(later - one.blockTimes.begin()) - 1;
    const std::size_t first = before * cIndexBlock;
    const std::size_t count = std::min(cIndexBlock, one.count - first);
    return first + firstNotBeforeIn(std::span(block(file, before)).first(count), time);
}

void tTimelineRecords::load(tBlock& held, std::uint32_t file, std::size_t number)
{
    if (!held.slots)
        held.slots = std::make_unique<tIndexBlock>();
    held.number = number;
    (*m_readBlock)(file, number, *held.slots);
}
}  // namespace storage
