// tSegmentDecoder: the tables of one Huffman file, and the decoding of any stretch of its bits. The storage engine uses
// it as an iSegmentDecoder; tHuffmanDecode is a handle over it.
//
// Bounds   reads no byte outside those that hold the bits and writes none outside `out`, whatever the head claims.
// Threads  decode() may run in several threads at once; setHead() runs alone.
#ifndef KESTOVA_STORAGE_CODEC_SEGMENTDECODER_H
#define KESTOVA_STORAGE_CODEC_SEGMENTDECODER_H

#include <cstddef>
#include <cstdint>

#include "KestovaStorage/internal/codec/segmentcodec.h"
#include "KestovaStorage/internal/codec/symboltable.h"

namespace huffman
{
class tSegmentDecoder final : public storage::iSegmentDecoder
{
public:
    // Reads the tFileHead at `head`; returns false, and changes nothing, if its magic is not that of a Huffman file.
    bool setHead(const void* head);
    // Returns whether a head was read that names at least two byte values: only then codes have bits.
    bool hasCodes() const { return m_table.hasCodes(); }
    // Returns the bits of the codes of everything that the head counted: no segment of the file can have more.
    std::uint64_t countedBits() const { return m_countedBits; }
    std::uint64_t countedBytes() const override { return m_countedBytes; }

    // Decodes the `bits` bits that begin `firstBit` bits (any number) behind the start of `data`; bits of an unfinished
    // code at the end are dropped. Returns the number of bytes decoded: 0 if `out` is smaller than roomFor(bits).
    // Behind them bytes of `out` may change.
    std::size_t decode(const char* data, std::uint64_t firstBit, std::uint64_t bits, char* out,
                       std::size_t outSize) const override;
    void decodeSeveral(const char* data, std::span<storage::tSegmentCodes> segments) const override;
    std::size_t roomFor(std::uint64_t bits) const;
    std::size_t room(std::uint64_t bits) const override { return isPossible(bits) ? roomFor(bits) : 0; }

    const tSymbolTable& table() const { return m_table; }

private:
    bool hasRoom(std::uint64_t bits, std::size_t outSize) const;
    bool isPossible(std::uint64_t bits) const { return hasCodes() && bits <= m_countedBits; }

    tSymbolTable m_table;
    std::uint64_t m_countedBits = 0;
    std::uint64_t m_countedBytes = 0;
};
}  // namespace huffman

#endif
