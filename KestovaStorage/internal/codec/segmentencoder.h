// tSegmentEncoder: counts the bytes of segments, makes their code, and appends the codes of one segment after the other
// to a bit stream. The storage engine uses it as an iSegmentEncoder; tHuffmanEncode is a handle over it.
//
// Order    count() every segment; makeCodes(); head(); encode() every segment; rest(). clear() begins anew.
// Stream   encode() writes complete units of 64 bits; the bits of an incomplete one are carried into the next call.
// Threads  starts none and locks nothing: one thread at a time.
// Errors   head() and encode() throw std::out_of_range ("map::at") for a byte that was never counted.
#ifndef KESTOVA_STORAGE_CODEC_SEGMENTENCODER_H
#define KESTOVA_STORAGE_CODEC_SEGMENTENCODER_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "KestovaStorage/internal/codec/bytecounter.h"
#include "KestovaStorage/internal/codec/codeemitter.h"
#include "KestovaStorage/internal/codec/codetree.h"
#include "KestovaStorage/internal/codec/segmentcodec.h"

namespace huffman
{
using storage::tEncodedBits;
using storage::tEncodedRest;

class tSegmentEncoder final : public storage::iSegmentEncoder
{
public:
    explicit tSegmentEncoder(eInstructions instructions = eInstructions::eBest)
        : m_counter(instructions), m_emitter(instructions)
    {}

    void clear();

    // ---- Counting ----

    void count(const void* bytes, std::size_t len) override
    {
        m_counter.add(bytes, len);
        m_countedBytes += len;
        ++m_countedSegments;
    }
    void count(storage::iSegmentEncoder& other) override;
    std::uint64_t countedBytes() const override { return m_countedBytes; }

    // Returns false if nothing was counted.
    bool makeCodes();
    // Returns whether the stored form can be decoded: at least two byte values, no code longer than 31 bits, no count
    // above 32 bits. Returns false before makeCodes().
    bool isRestorable() const { return m_restorable; }

    // ---- Encoding ----

    // Returns the bytes of a tFileHead and gets ready to encode; prints one line. Empty if nothing was counted.
    std::string head();
    // Calls makeCodes() and head(). Returns nothing if the stored form cannot be decoded.
    std::string begin() override;
    bool isReady() const { return m_ready; }  // head() was called
    // Returns the number of bytes that encode() may write for a segment of this length.
    std::size_t room(std::size_t len) const override { return m_emitter.room(len); }
    // Appends the codes of a segment; `out` has room(len) bytes. If a byte has no code, the codes before it are in the
    // stream.
    tEncodedBits encode(const void* bytes, std::uint32_t len, char* out) override;
    // Ends the stream; prints one line. Returns the bytes of the unit that is not complete, one more than needed if it
    // holds whole bytes. The unit stays: call it once.
    tEncodedRest rest() override;

    // ---- For files and byte arrays, which are no segments ----

    tByteCounter& counter() { return m_counter; }
    const tFreqTable& freqs() const { return m_freqs; }  // the counts that the codes were made from
    std::uint64_t codeBits(const tFreqTable& freqs) const;
    void useCodes(const tFreqTable& freqs) { m_emitter.set(m_codes, freqs.counts); }  // head() does so too
    const tCodeEmitter& emitter() const { return m_emitter; }

private:
    tByteCounter m_counter;
    tFreqTable m_freqs;
    tCodeTable m_codes;
    tCodeEmitter m_emitter;
    tPartialUnit m_partial;
    bool m_restorable = false;
    bool m_ready = false;
    std::uint64_t m_countedBytes = 0;
    std::uint32_t m_countedSegments = 0;  // since the last head
    std::uint64_t m_encodedBits = 0;
    std::uint32_t m_encodedSegments = 0;
};
}  // namespace huffman

#endif
