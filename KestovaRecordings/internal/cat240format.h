// The numbers of category 240 that reading and writing share. cat240.h shows the layout.
#ifndef KESTOVA_RECORDINGS_CAT240FORMAT_H
#define KESTOVA_RECORDINGS_CAT240FORMAT_H

#include <cstddef>
#include <cstdint>

namespace recordings::cat240
{
constexpr std::uint8_t cCategory = 240;
constexpr std::size_t cBlockHead = 3;  // category and length

// Items by their place in the FSPEC.
enum eItem : unsigned
{
    eDataSource = 1,
    eMessageType,
    eSequence,
    eSummary,
    eHeaderNano,
    eHeaderFemto,
    eResolution,
    eCounters,
    eBlockLow,
    eBlockMedium,
    eBlockHigh,
    eTimeOfDay,
    eReserved,
    eSpecial
};

constexpr std::uint8_t cSummaryMessage = 1, cVideoMessage = 2;
constexpr std::uint8_t cCompressed = 0x80;
constexpr std::uint8_t cResolutions[] = {1, 2, 4, 8, 16, 32};  // bits a cell, for 1 to 6

// Bytes of an item: `fixed`, and of those with a count n in their first byte `each` n more. An explicit length (RE, SP)
// has neither.
struct tItemSize
{
    std::uint8_t fixed;
    std::uint16_t each;
};
constexpr tItemSize cSizes[] = {{0, 0}, {2, 0}, {1, 0},  {4, 0},   {1, 1}, {12, 0}, {12, 0}, {2, 0},
                                {5, 0}, {1, 4}, {1, 64}, {1, 256}, {3, 0}, {0, 0},  {0, 0}};

constexpr double cMetresPerSecond = 299'792'458.0 / 2;  // there and back
constexpr std::uint32_t cTicksPerSecond = 128;
constexpr std::uint32_t cTicksPerDay = 86'400 * cTicksPerSecond;

// The bit of an item in its byte of the FSPEC.
constexpr std::uint8_t fspecBit(unsigned item)
{
    return static_cast<std::uint8_t>(0x80u >> (item - 1) % 7);
}
constexpr std::uint8_t cMoreFspec = 0x01;
}  // namespace recordings::cat240

#endif
