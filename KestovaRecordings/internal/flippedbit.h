// flippedBit: where the one bit is by which bytes differ from those that a CRC32C was computed of.
#ifndef KESTOVA_RECORDINGS_FLIPPEDBIT_H
#define KESTOVA_RECORDINGS_FLIPPEDBIT_H

#include <cstdint>
#include <optional>

namespace recordings
{
// `difference` is the exclusive or of the checksums of `size` bytes as they are and as they were. Returns the number of
// the bit, counted from the lowest one of the first byte, whose change alone makes that difference. Returns nothing if
// no single bit does, or for more than 16 MiB. Of bytes with more changes one in some 4 billion differences is taken
// for a single bit, for each bit that they have. Takes a nanosecond a bit.
std::optional<std::uint64_t> flippedBit(std::uint32_t difference, std::uint64_t size);
}  // namespace recordings

#endif
