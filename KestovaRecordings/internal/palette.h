// The colours of a picture.
#ifndef KESTOVA_RECORDINGS_PALETTE_H
#define KESTOVA_RECORDINGS_PALETTE_H

#include <array>
#include <cstdint>

#include "KestovaRecordings/picture.h"

namespace recordings
{
struct tColours
{
    std::array<std::uint32_t, 256> echoes;  // by level
    std::uint32_t outside, marks, text, targets;
};

// 0xFFRRGGBB each.
tColours coloursOf(ePalette palette);
}  // namespace recordings

#endif
