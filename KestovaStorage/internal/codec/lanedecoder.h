// Decodes one stream from several positions at once.
//
// A lookup waits for the one before it, so one position leaves most of the processor idle; four positions do not wait
// for one another. The places at which later codes begin are unknown, but a decoder that starts anywhere synchronises
// after a few codes. So later positions are guessed, decoded up to a place that probably begins a code, and used from
// there; each lane must then end exactly at the place at which the next one began. If one does not, the lanes behind it
// are discarded and decoding continues from the end of that lane.
#ifndef KESTOVA_STORAGE_CODEC_LANEDECODER_H
#define KESTOVA_STORAGE_CODEC_LANEDECODER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "KestovaStorage/internal/codec/symboldecoder.h"

namespace huffman
{
class tLaneDecoder
{
public:
    static constexpr std::uint64_t cWorthLanes = 8192;  // shorter ranges, in bits, gain nothing from lanes

    explicit tLaneDecoder(const tSymbolTable& table, eInstructions instructions = eInstructions::eBest);

    // Returns the room in bytes that decoding a range of so many bits in lanes needs.
    std::size_t roomFor(std::uint64_t bits) const { return cLanes * laneRoom(laneBits(bits)); }
    // As tSymbolDecoder::decode, but stops after some rounds if the room that is left is too small for another. Call it
    // until it decodes nothing.
    unsigned char* decode(tBitRange& range, unsigned char* out, unsigned char* outEnd);

    std::uint64_t discardedLanes() const { return m_discardedLanes; }  // so far

    static constexpr std::size_t cLanes = 4;
    struct tLane
    {
        tBitRange range;
        unsigned char *begin, *out, *outEnd;
    };
    using tLanes = std::array<tLane, cLanes>;
    // Decodes ranges of the same data whose ends are ends of codes, each as tSymbolDecoder::decode does.
    void decodeEach(tLanes& lanes) const;

private:
    static constexpr std::uint64_t cMostLaneBits = 32768;
    static constexpr std::uint64_t cRunIn = 512;  // bits within which a guessed position is assumed to synchronise

    // Returns the bits that one lane decodes of a range of so many; laneRoom() returns the most bytes that so many bits
    // decode to.
    static std::uint64_t laneBits(std::uint64_t bits)
    {
        return bits / cLanes < cMostLaneBits ? bits / cLanes : cMostLaneBits;
    }
    std::size_t laneRoom(std::uint64_t bits) const
    {
        return static_cast<std::size_t>((bits + 2 * cRunIn) / m_table.tree().shortest()) + 2 * tSymbolDecoder::cSlack;
    }
    tLanes makeLanes(const tBitRange& range, unsigned char* out, unsigned char* outEnd);
    unsigned char* decodeRound(tBitRange& range, unsigned char* out, unsigned char* outEnd);
    void decodeTogether(tLanes& lanes) const;

    const tSymbolTable& m_table;
    const tSymbolDecoder m_decoder;
    eInstructions m_instructions;
    std::unique_ptr<unsigned char[]> m_scratch;  // for all lanes but the first
    std::size_t m_scratchSize = 0;
    std::uint64_t m_discardedLanes = 0;
};
}  // namespace huffman

#endif
