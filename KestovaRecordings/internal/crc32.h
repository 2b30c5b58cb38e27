// The CRC-32 of zlib, PNG and MCAP.
#ifndef KESTOVA_RECORDINGS_INTERNAL_CRC32_H
#define KESTOVA_RECORDINGS_INTERNAL_CRC32_H

#include <cstdint>
#include <isa-l/crc.h>
#include <string_view>

namespace recordings
{
// `before` is that of the bytes in front, 0 for none.
inline std::uint32_t crc32(std::uint32_t before, std::string_view bytes)
{
    return crc32_gzip_refl(before, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}
}  // namespace recordings

#endif
