#include "KestovaRecordings/spoke.h"

#include <cstring>

namespace recordings
{
namespace
{
// Cells of whole bytes, and of 12 bits, of which two share three bytes.
std::uint32_t wideCell(const tCells& cells, std::size_t i)
{
    const unsigned char* const at = cells.bytes + i * (cells.bits / 8);
    std::uint32_t value = 0;
    for (unsigned byte = 0; byte < cells.bits / 8u; ++byte)
        value |= std::uint32_t{at[byte]} << 8 * (cells.bigEndian ? cells.bits / 8u - 1 - byte : byte);
    return value;
}

std::uint32_t twelveBits(const tCells& cells, std::size_t i)
{
    const unsigned char* const at = cells.bytes + i / 2 * 3;
    return i % 2 == 0 ? std::uint32_t{at[0]} << 4 | at[1] >> 4 : (at[1] & 0x0Fu) << 8 | at[2];
}
}  // namespace

std::uint32_t tCells::at(std::size_t i) const
{
    if (bits == 8)
        return bytes[i];
    if (bits == 12)
        return twelveBits(*this, i);
    if (bits > 8)
        return wideCell(*this, i);
    const std::size_t firstBit = i * bits;
    return bytes[firstBit / 8] >> (8 - bits - firstBit % 8) & fullScale();
}

void tCells::toBytes(unsigned char* to) const
{
    if (bits == 8)
    {
        std::memcpy(to, bytes, count);
        return;
    }
    const unsigned down = bits > 8 ? bits - 8u : 0u;
    const unsigned up = bits < 8 ? 255u / fullScale() : 1u;
    for (std::size_t i = 0; i < count; ++i)
        to[i] = static_cast<unsigned char>((at(i) >> down) * up);
}
}  // namespace recordings
