#include <algorithm>
#include <array>
#include <iterator>

#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/internal/cat240format.h"
#include "KestovaRecordings/internal/sentencefields.h"
#include "common/byteorder.h"

namespace recordings
{
using namespace cat240;

namespace
{
// The items of a record, where they stand in the datagram; null for those that are not there.
using tItems = std::array<const unsigned char*, eSpecial + 1>;

// Reads one data block record by record.
class tBlock
{
public:
    tBlock(const unsigned char* at, const unsigned char* end) : m_at(at), m_end(end) {}

    bool atEnd() const { return m_at == m_end; }
    // Sets the items of the next record. Returns false if the rest of the block is none.
    bool next(tItems& items)
    {
        const unsigned char* const fspec = m_at;
        do
        {
            if (m_at == m_end)
                return false;
        } while ((*m_at++ & cMoreFspec) != 0);
        const unsigned char* const fspecEnd = m_at;
        items.fill(nullptr);
        unsigned item = 0;
        for (const unsigned char* byte = fspec; byte != fspecEnd; ++byte)
        {
            for (unsigned bit = 0; bit < 7; ++bit)
            {
                ++item;
                if ((*byte & 0x80u >> bit) != 0 && !take(item, items))
                    return false;
            }
        }
        return true;
    }

private:
    bool take(unsigned item, tItems& items)
    {
        if (item > eSpecial || m_at == m_end)
            return false;
        const tItemSize& size = cSizes[item];
        std::size_t length = std::size_t{size.fixed} + std::size_t{size.each} * *m_at;
        if (size.fixed == 0)
            length = *m_at;
        if (length == 0 || length > static_cast<std::size_t>(m_end - m_at))
            return false;
        items[item] = m_at;
        m_at += length;
        return true;
    }

    const unsigned char* m_at;
    const unsigned char* m_end;
};

std::uint32_t number24(const unsigned char* at)
{
    return std::uint32_t{at[0]} << 16 | be::load<std::uint16_t>(at + 1);
}

std::optional<std::uint32_t> timeOfDayIn(const tItems& items)
{
    if (items[eTimeOfDay] == nullptr)
        return std::nullopt;
    const std::uint32_t ticks = number24(items[eTimeOfDay]);
    return ticks < cTicksPerDay ? std::optional(ticks) : std::nullopt;
}

bool readHeader(const tItems& items, tCat240Video& video)
{
    const unsigned char* const header = items[eHeaderFemto] != nullptr ? items[eHeaderFemto] : items[eHeaderNano];
    if (header == nullptr)
        return false;
    video.startAzimuth = be::load<std::uint16_t>(header);
    video.endAzimuth = be::load<std::uint16_t>(header + 2);
    video.startCell = be::load<std::uint32_t>(header + 4);
    const double unit = items[eHeaderFemto] != nullptr ? 1e-15 : 1e-9;
    video.cellM = be::load<std::uint32_t>(header + 8) * unit * cMetresPerSecond;
    return true;
}

// Returns false if the counts are beyond the block, or there is no block.
bool readCells(const tItems& items, tCat240Video& video)
{
    const auto block = std::find_if(items.begin() + eBlockLow, items.begin() + eBlockHigh + 1,
                                    [](const unsigned char* at) { return at != nullptr; });
    if (block == items.begin() + eBlockHigh + 1 || items[eResolution] == nullptr || items[eCounters] == nullptr)
        return false;
    const std::uint8_t resolution = items[eResolution][1];
    const std::size_t room = std::size_t{cSizes[block - items.begin()].each} * **block;
    video.compressed = (items[eResolution][0] & cCompressed) != 0;
    video.octets = be::load<std::uint16_t>(items[eCounters]);
    video.cells.bytes = *block + 1;
    video.cells.count = video.compressed ? 0 : number24(items[eCounters] + 2);
    if (video.octets > room || resolution == 0 || resolution > std::size(cResolutions))
        return false;
    video.cells.bits = cResolutions[resolution - 1];
    video.cells.bigEndian = true;
    return video.cells.byteCount() <= video.octets;
}

// A record that lacks what its type must have is passed over: its items are whole, so the next one is found.
void passOn(const tItems& items, iCat240Sink& sink)
{
    if (items[eDataSource] == nullptr || items[eMessageType] == nullptr)
        return;
    if (*items[eMessageType] == cSummaryMessage && items[eSummary] != nullptr)
        sink.onSummary({items[eDataSource][0],
                        items[eDataSource][1],
                        {reinterpret_cast<const char*>(items[eSummary] + 1), *items[eSummary]},
                        timeOfDayIn(items)});
    if (*items[eMessageType] != cVideoMessage || items[eSequence] == nullptr)
        return;
    tCat240Video video;
    video.sac = items[eDataSource][0];
    video.sic = items[eDataSource][1];
    video.sequence = be::load<std::uint32_t>(items[eSequence]);
    if (!readHeader(items, video) || !readCells(items, video))
        return sink.onDamagedVideo(video);
    video.timeOfDay = timeOfDayIn(items);
    sink.onVideo(video);
}
}  // namespace

bool readCat240(std::string_view datagram, iCat240Sink& sink)
{
    const auto* at = reinterpret_cast<const unsigned char*>(datagram.data());
    const unsigned char* const end = at + datagram.size();
    while (at != end)
    {
        const std::size_t left = static_cast<std::size_t>(end - at);
        const std::size_t length = left >= cBlockHead ? be::load<std::uint16_t>(at + 1) : 0;
        if (length < cBlockHead || length > left)
            return false;
        tBlock block(at + cBlockHead, at + length);
        tItems items;
        while (*at == cCategory && !block.atEnd())
        {
            if (!block.next(items))
                return false;
            passOn(items, sink);
        }
        at += length;
    }
    return !datagram.empty();
}

std::uint64_t timeOfDayNear(std::uint32_t timeOfDay, std::uint64_t nearMs)
{
    const std::uint64_t ms = (std::uint64_t{timeOfDay} * 1000 + cTicksPerSecond / 2) / cTicksPerSecond;
    return nearestMs(static_cast<std::uint32_t>(ms), nearMs);
}
}  // namespace recordings
