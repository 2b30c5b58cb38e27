// The end of a stream of codes that is being written. Two ways to append: bytewise, which takes the fewest steps per
// code, for long inputs; and by whole units, which never reads back what it stored, for short ones.
#ifndef KESTOVA_STORAGE_CODEC_BITAPPENDER_H
#define KESTOVA_STORAGE_CODEC_BITAPPENDER_H

#include <cstddef>
#include <cstdint>

#include "KestovaStorage/internal/codec/processor.h"
#include "common/byteorder.h"

namespace huffman
{
constexpr unsigned cMostBitsJoined = 56;  // what a word takes beside 7 bits of the stream
constexpr std::uint64_t cNoEntry = 63;    // no code, or too long a pair: its length alone exceeds what can be joined

// `bits` holds the `count` bits (0 to 7) of the byte at `out`.
struct tByteAppender
{
    std::uint64_t bits;
    unsigned count;
    unsigned char* out;

    KESTOVA_INLINE void join(std::uint64_t codes, unsigned length)
    {
        bits |= codes << count;
        le::store(out, bits);
        count += length;
        out += count / 8;
        bits >>= count & 56;
        count &= 7;
    }
};

// `bits` holds the `count` bits (0 to 63) of the unit at `out`.
struct tUnitAppender
{
    std::uint64_t bits;
    unsigned count;
    unsigned char* out;

    KESTOVA_INLINE void join(std::uint64_t codes, unsigned length)
    {
        bits |= codes << count;
        le::store(out, bits);
        const std::uint64_t next = codes >> 1 >> (63 - count);  // what did not fit; 0 if all did
        count += length;
        const std::uint64_t full = count / 64;
        bits = (bits & (full - 1)) | next;  // a branch here could not be predicted
        out += full * 8;
        count &= 63;
    }
};

// Returns false for a byte without code.
template <typename tEnd>
KESTOVA_INLINE bool joinSingle(std::uint64_t entry, tEnd& end)
{
    const auto length = static_cast<unsigned>(entry & 63);
    if (length == cNoEntry)
        return false;
    end.join(entry >> (64 - length), length);
    return true;
}

// Joins bytes `i` up to `until`; stops at one without code. Returns the place at which it stopped.
template <typename tEnd>
KESTOVA_INLINE std::size_t joinSingles(const std::uint64_t* singles, const unsigned char* data, std::size_t i,
                                       std::size_t until, tEnd& end)
{
    while (i < until && joinSingle(singles[data[i]], end))
        ++i;
    return i;
}
}  // namespace huffman

#endif
