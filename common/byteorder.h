// Numbers of the formats, little-endian on disk and in packages whatever the host is.
#ifndef KESTOVA_COMMON_BYTEORDER_H
#define KESTOVA_COMMON_BYTEORDER_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace le
{
template <typename tNumber>
constexpr tNumber swapped(tNumber value)
{
    static_assert(std::is_unsigned_v<tNumber>);
    if constexpr (sizeof(tNumber) == 8)
        return __builtin_bswap64(value);
    else if constexpr (sizeof(tNumber) == 4)
        return __builtin_bswap32(value);
    else if constexpr (sizeof(tNumber) == 2)
        return __builtin_bswap16(value);
    else
        return value;
}

// The number stored at `from`; any alignment.
template <typename tNumber>
tNumber load(const void* from)
{
    tNumber value;
    std::memcpy(&value, from, sizeof value);
    return std::endian::native == std::endian::little ? value : swapped(value);
}

// The number whose low bytes are the `size` (fewer than 8) ones at `from`.
inline std::uint64_t loadPart(const unsigned char* from, std::size_t size)
{
    if (size >= 4)
        return load<std::uint32_t>(from) | std::uint64_t{load<std::uint32_t>(from + size - 4)} << (8 * size - 32);
    std::uint64_t value = 0;
    for (; size != 0; --size)
        value = value << 8 | from[size - 1];
    return value;
}

// Stores `value` at `to`; any alignment.
template <typename tNumber>
void store(void* to, tNumber value)
{
    if constexpr (std::endian::native != std::endian::little)
        value = swapped(value);
    std::memcpy(to, &value, sizeof value);
}
}  // namespace le

// Numbers of network headers, which are big-endian on the wire.
namespace be
{
// The number stored at `from`; any alignment.
template <typename tNumber>
tNumber load(const void* from)
{
    return le::swapped(le::load<tNumber>(from));
}

// Stores `value` at `to`; any alignment.
template <typename tNumber>
void store(void* to, tNumber value)
{
    le::store(to, le::swapped(value));
}
}  // namespace be

#endif
