#include "KestovaRecordings/internal/flippedbit.h"

namespace recordings
{
namespace
{
constexpr std::uint32_t cPolynomial = 0x82F63B78;  // of CRC32C, lowest bit first
constexpr std::uint64_t cMostBytes = std::uint64_t{16} << 20;
}  // namespace

// A checksum is linear: the difference that a bit makes depends on nothing but the number of bits behind it. That of
// the last bit is the polynomial; each bit further from the end is one more step of the register.
std::optional<std::uint64_t> flippedBit(std::uint32_t difference, std::uint64_t size)
{
    if (difference == 0 || size > cMostBytes)
        return std::nullopt;
    std::uint32_t made = cPolynomial;
    for (std::uint64_t behind = 0; behind < size * 8; ++behind)
    {
        if (made == difference)
            return size * 8 - 1 - behind;
        made = made >> 1 ^ (cPolynomial & (0 - (made & 1)));
    }
    return std::nullopt;
}
}  // namespace recordings
