#include <algorithm>
#include <cmath>
#include <cstring>

#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/internal/cat240format.h"
#include "common/byteorder.h"

namespace recordings
{
using namespace cat240;

namespace
{
constexpr double cLongest = 4'294'967'295.0;  // in a header, of either unit

// Bits a cell as it is written, and the number that stands for it.
struct tResolution
{
    std::uint8_t bits;
    std::uint8_t number;
};
tResolution resolutionFor(std::uint8_t bits)
{
    std::uint8_t number = 1;
    while (cResolutions[number - 1] < bits)
        ++number;
    return {cResolutions[number - 1], number};
}

// Of the smallest block that holds so many bytes.
struct tBlockSize
{
    eItem item;
    std::size_t count;
    std::size_t bytes() const { return 1 + count * cSizes[item].each; }
};
tBlockSize blockFor(std::size_t bytes)
{
    for (const eItem item : {eBlockLow, eBlockMedium})
    {
        const std::size_t count = (bytes + cSizes[item].each - 1) / cSizes[item].each;
        if (count <= 255)
            return {item, count};
    }
    return {eBlockHigh, (bytes + cSizes[eBlockHigh].each - 1) / cSizes[eBlockHigh].each};
}

// Full scale becomes full scale: the bits of a cell are repeated below it.
void widen(const tCells& cells, unsigned char* to)
{
    for (std::size_t i = 0; i < cells.count; ++i)
    {
        const std::uint32_t value = cells.at(i);
        if (cells.bits == 12)
            be::store(to + 2 * i, static_cast<std::uint16_t>(value << 4 | value >> 8));
        else
            be::store(to + 4 * i, value << 8 | value >> 16);
    }
}

void swapBytes(const tCells& cells, unsigned char* to)
{
    for (std::size_t i = 0; i < cells.count; ++i)
    {
        if (cells.bits == 16)
            be::store(to + 2 * i, static_cast<std::uint16_t>(cells.at(i)));
        else
            be::store(to + 4 * i, cells.at(i));
    }
}

void writeCells(const tCells& cells, unsigned char* to)
{
    if (cells.bits == 12 || cells.bits == 24)
        widen(cells, to);
    else if (cells.bits > 8 && !cells.bigEndian)
        swapBytes(cells, to);
    else
        std::memcpy(to, cells.bytes, cells.byteCount());
}

void write24(unsigned char* to, std::uint32_t value)
{
    to[0] = static_cast<unsigned char>(value >> 16);
    be::store(to + 1, static_cast<std::uint16_t>(value));
}

// A cell's duration as it is written.
struct tDuration
{
    eItem item;
    double value;
};
tDuration durationFor(double cellM)
{
    const double seconds = cellM / cMetresPerSecond;
    const double femto = std::round(seconds * 1e15);
    return femto <= cLongest ? tDuration{eHeaderFemto, femto} : tDuration{eHeaderNano, std::round(seconds * 1e9)};
}

// Writes FSPEC, the data source, the type and the numbers before the cells; returns their end.
unsigned char* writeHead(const tCat240Video& video, const tDuration& duration, const tBlockSize& block,
                         unsigned char* to)
{
    to[0] = static_cast<unsigned char>(fspecBit(eDataSource) | fspecBit(eMessageType) | fspecBit(eSequence) |
                                       fspecBit(duration.item) | fspecBit(eResolution) | cMoreFspec);
    to[1] = static_cast<unsigned char>(fspecBit(eCounters) | fspecBit(block.item) |
                                       (video.timeOfDay ? fspecBit(eTimeOfDay) : 0));
    to[2] = video.sac;
    to[3] = video.sic;
    to[4] = cVideoMessage;
    be::store(to + 5, video.sequence);
    be::store(to + 9, video.startAzimuth);
    be::store(to + 11, video.endAzimuth);
    be::store(to + 13, video.startCell);
    be::store(to + 17, static_cast<std::uint32_t>(duration.value));
    return to + 21;
}
}  // namespace

bool appendCat240(const tCat240Video& video, std::string& datagram)
{
    const tResolution resolution = resolutionFor(video.cells.bits);
    const std::size_t octets = (std::size_t{video.cells.count} * resolution.bits + 7) / 8;
    const tDuration duration = durationFor(video.cellM);
    if (video.compressed || octets > cCat240LargestCells || !(duration.value <= cLongest) || !(duration.value >= 0))
        return false;
    const tBlockSize block = blockFor(octets);
    constexpr std::size_t cBeforeBlock = cBlockHead + 21 + 2 + 5;
    const std::size_t length = cBeforeBlock + block.bytes() + (video.timeOfDay ? 3 : 0);
    const std::size_t before = datagram.size();
    datagram.resize(before + length);
    auto* to = reinterpret_cast<unsigned char*>(datagram.data()) + before;
    to[0] = cCategory;
    be::store(to + 1, static_cast<std::uint16_t>(length));
    to = writeHead(video, duration, block, to + cBlockHead);
    to[0] = 0;
    to[1] = resolution.number;
    be::store(to + 2, static_cast<std::uint16_t>(octets));
    write24(to + 4, video.cells.count);
    to[7] = static_cast<unsigned char>(block.count);
    writeCells(video.cells, to + 8);
    if (video.timeOfDay)
        write24(to + 7 + block.bytes(), *video.timeOfDay);
    return true;
}

std::uint32_t timeOfDayAt(std::uint64_t timeMs)
{
    constexpr std::uint64_t cMsPerDay = 86'400'000, cMsPerSecond = 1000;
    const std::uint64_t ticks = (timeMs % cMsPerDay * cTicksPerSecond + cMsPerSecond / 2) / cMsPerSecond;
    return static_cast<std::uint32_t>(ticks % cTicksPerDay);
}
}  // namespace recordings
