// CRC32C, the checksum of blocks (polynomial 0x1EDC6F41, reflected): of "123456789" it is 0xE3069283.
#ifndef KESTOVA_RECORDINGS_CRC32C_H
#define KESTOVA_RECORDINGS_CRC32C_H

#include <cstddef>
#include <cstdint>

namespace recordings
{
// Returns the checksum of bytes that follow others, whose checksum is `before` (0 for none). Any thread.
std::uint32_t crc32c(std::uint32_t before, const void* bytes, std::size_t len);
}  // namespace recordings

#endif
