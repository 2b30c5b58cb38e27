#include "KestovaRecordings/internal/crc32c.h"

#include <algorithm>
#include <isa-l/crc.h>

namespace recordings
{
std::uint32_t crc32c(std::uint32_t before, const void* bytes, std::size_t len)
{
    constexpr std::size_t cMost = std::size_t(1) << 30;  // the library counts in int
    // It does not write, but declares that it might.
    auto* at = static_cast<unsigned char*>(const_cast<void*>(bytes));
    std::uint32_t state = ~before;
    for (std::size_t part = 0; len != 0; at += part, len -= part)
    {
        part = std::min(len, cMost);
        state = crc32_iscsi(at, static_cast<int>(part), state);
    }
    return ~state;
}
}  // namespace recordings
