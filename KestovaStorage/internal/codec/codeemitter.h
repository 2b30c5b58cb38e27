// tCodeEmitter: appends the codes of bytes to a bit stream.
//
// Stream   codes fill units of 64 bits from bit 0 upwards; complete units are written as 8 bytes, little-endian, and
//          the bits of an incomplete one are carried in a tPartialUnit from call to call.
// Speed    bytes are looked up one by one or, if the data is large enough for a table of 512 KiB to pay, two by two;
//          the codes of a group of bytes are joined in a word of their own before they join the stream, so that groups
//          do not wait for one another. An entry holds its code in the top bits and its length in the low ones: one
//          word serves as shift distance, summand and code.
// Memory   only the table of pairs; emit() allocates nothing.
// Threads  emit() may run in several threads at once.
#ifndef KESTOVA_STORAGE_CODEC_CODEEMITTER_H
#define KESTOVA_STORAGE_CODEC_CODEEMITTER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "KestovaStorage/internal/codec/codeemitter_avx512.h"
#include "KestovaStorage/internal/codec/codetree.h"
#include "KestovaStorage/internal/codec/processor.h"

namespace huffman
{
// Codes that do not fill a unit yet.
struct tPartialUnit
{
    std::uint64_t bits = 0;
    unsigned count = 0;  // 0 to 63
};

class tCodeEmitter
{
public:
    explicit tCodeEmitter(eInstructions instructions = eInstructions::eBest);

    // Replaces the codes; `counts`: how often each byte is expected.
    void set(const tCodeTable& codes, const tByteCounts& counts);
    // Returns the number of bytes that emit() may write for an input of this length.
    std::size_t room(std::size_t len) const { return ((63 + len * m_codes.longest) / 64 + 2) * 8; }
    // Returns the number of bits emitted. Writes the complete units of the carried and the new bits to `out`, and
    // overwrites up to 16 bytes behind them. Throws std::out_of_range ("map::at") for a byte without code; the codes
    // before it are in `out` and `carry`.
    std::uint64_t emit(const unsigned char* data, std::size_t len, tPartialUnit& carry, unsigned char* out) const
    {
        const unsigned before = carry.count;
        const tEmitted emitted = len < m_shortLength
                                     ? m_emitShort(m_longGroups, m_singles.data(), data, len, carry, out)
                                     : emitLong(data, len, carry, out);
        if (emitted.done != len)
            raiseNoCode();
        return static_cast<std::uint64_t>(emitted.out - out) * 8 + carry.count - before;
    }

    // The number of bytes emitted, and the end of their last complete unit.
    struct tEmitted
    {
        std::size_t done;
        unsigned char* out;
    };

private:
    static constexpr std::uint64_t cBytesWorthPairs = 256 * 1024;
    using tEmitShort = tEmitted (*)(bool longGroups, const std::uint64_t* singles, const unsigned char* data,
                                    std::size_t len, tPartialUnit& carry, unsigned char* out);

    void setSingles();
    void setPairs();
    tEmitted emitLong(const unsigned char* data, std::size_t len, tPartialUnit& carry, unsigned char* out) const;
    tEmitted emitExact(const unsigned char* data, std::size_t len, tPartialUnit& carry, unsigned char* out) const;
    [[noreturn]] static void raiseNoCode();

    eInstructions m_instructions;
    tEmitShort m_emitShort;
    std::size_t m_shortLength = 0;  // shorter inputs go to m_emitShort
    tCodeTable m_codes;
    bool m_fast = false;         // codes of 1 to 31 bits
    bool m_vectors = false;      // 64 bytes at a time; no pairs then
    bool m_longGroups = false;   // eight codes fit in a word often enough to try
    bool m_longVectors = false;  // the same for vectors, which lose less if they do not fit
    tVectorTables m_vectorTables;
    std::array<std::uint64_t, cByteValues> m_singles{};
    std::vector<std::uint64_t> m_pairs;  // by two bytes, the first one in the low half; empty if not worth its time
};
}  // namespace huffman

#endif
