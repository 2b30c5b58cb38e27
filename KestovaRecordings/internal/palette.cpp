#include "KestovaRecordings/internal/palette.h"

#include <iterator>

namespace recordings
{
namespace
{
struct tStop
{
    unsigned level;
    std::uint32_t colour;
};

constexpr std::uint32_t cOpaque = 0xFF000000;

// The colour between two, `part` of `whole` on the way.
std::uint32_t between(std::uint32_t from, std::uint32_t to, unsigned part, unsigned whole)
{
    std::uint32_t colour = cOpaque;
    for (unsigned shift = 0; shift < 24; shift += 8)
    {
        const unsigned a = from >> shift & 0xFF, b = to >> shift & 0xFF;
        colour |= (a * (whole - part) + b * part + whole / 2) / whole << shift;
    }
    return colour;
}

template <std::size_t cCount>
tColours colours(const tStop (&stops)[cCount], std::uint32_t outside, std::uint32_t marks, std::uint32_t text,
                 std::uint32_t targets)
{
    tColours result{{}, outside | cOpaque, marks | cOpaque, text | cOpaque, targets | cOpaque};
    std::size_t next = 1;
    for (unsigned level = 0; level < result.echoes.size(); ++level)
    {
        while (next + 1 < cCount && level > stops[next].level)
            ++next;
        const tStop &low = stops[next - 1], &high = stops[next];
        result.echoes[level] = between(low.colour, high.colour, level - low.level, high.level - low.level);
    }
    return result;
}

constexpr tStop cDay[] = {{0, 0x0B2A4A}, {24, 0x14406B}, {96, 0xC08A1E}, {255, 0xFFE26B}};
constexpr tStop cDusk[] = {{0, 0x071421}, {24, 0x10304A}, {96, 0x9A6A18}, {255, 0xE8C24E}};
constexpr tStop cNight[] = {{0, 0x000000}, {24, 0x1A0A04}, {96, 0x6E2A10}, {255, 0xC8642A}};
constexpr tStop cGrey[] = {{0, 0x000000}, {255, 0xFFFFFF}};
}  // namespace

tColours coloursOf(ePalette palette)
{
    switch (palette)
    {
    case ePalette::eDay:
        return colours(cDay, 0x061A30, 0x6FA8C8, 0xE8F2F8, 0x7CFC9A);
    case ePalette::eDusk:
        return colours(cDusk, 0x030A12, 0x4A7C94, 0xB8CCD8, 0x58C070);
    case ePalette::eNight:
        return colours(cNight, 0x000000, 0x5A2A1A, 0xA05038, 0x388048);
    case ePalette::eGrey:
        break;
    }
    return colours(cGrey, 0x000000, 0x808080, 0xE0E0E0, 0xFFFFFF);
}
}  // namespace recordings
