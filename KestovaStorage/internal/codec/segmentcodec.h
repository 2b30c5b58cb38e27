// iSegmentEncoder, iSegmentDecoder: what the storage engine knows of a compression: segments in, a stream of bits out,
// and back. datafile/fileforms.h has the compression of each form of data file.
#ifndef KESTOVA_STORAGE_CODEC_SEGMENTCODEC_H
#define KESTOVA_STORAGE_CODEC_SEGMENTCODEC_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace storage
{
// Where the codes of a segment are, from the first byte that encode() wrote on.
struct tEncodedBits
{
    std::uint32_t firstBit = 0;  // bits of earlier segments in front of them, 0 to 63
    std::uint32_t bits = 0;
    std::uint32_t stored = 0;  // bytes that were written
};

// Bytes of the last segments that come only at the end.
struct tEncodedRest
{
    char bytes[sizeof(std::uint64_t)];
    std::uint32_t size;
};

// Order    count() every segment; begin(); encode() every segment; rest().
// Threads  one thread at a time.
// Errors   encode() throws std::out_of_range for bytes that were never counted.
class iSegmentEncoder
{
public:
    virtual ~iSegmentEncoder() = default;

    virtual void count(const void* bytes, std::size_t len) = 0;
    virtual void count(iSegmentEncoder& other) = 0;  // adds what `other`, of the same class, has counted
    virtual std::uint64_t countedBytes() const = 0;

    // Ends the counting. Returns what stands at the start of the file, magic first: cIndexHeadPos bytes of
    // datafileformat.h at most, since the index begins there. Empty if the file could not give the segments back.
    virtual std::string begin() = 0;
    // Bytes that encode() may write for a segment of this length.
    virtual std::size_t room(std::size_t len) const = 0;
    // Appends the codes of a segment; `out` has room(len) bytes.
    virtual tEncodedBits encode(const void* bytes, std::uint32_t len, char* out) = 0;
    // Ends the stream; call it once.
    virtual tEncodedRest rest() = 0;
};

// One of several segments whose codes are in the same bytes.
struct tSegmentCodes
{
    std::uint64_t firstBit, bits;  // counted from the start of the bytes
    char* out;
    std::size_t outSize;      // at least room(bits)
    std::size_t decoded = 0;  // bytes; set by decodeSeveral()
};

// Bounds   reads no byte outside those that hold the bits and writes none outside `out`, whatever the file claims.
// Threads  every operation may run in several threads at once.
class iSegmentDecoder
{
public:
    virtual ~iSegmentDecoder() = default;

    virtual std::uint64_t countedBytes() const = 0;  // of all segments of the file, as its head has them
    // Bytes of room that decode() needs for the codes of a segment; 0 if no segment of the file can have so many bits,
    // or its head cannot be used.
    virtual std::size_t room(std::uint64_t bits) const = 0;
    // Decodes the `bits` bits that begin `firstBit` bits (any number) behind the start of `data`. Returns the number of
    // bytes decoded: 0 if `outSize` is below room(bits). Behind them bytes of `out` may change.
    virtual std::size_t decode(const char* data, std::uint64_t firstBit, std::uint64_t bits, char* out,
                               std::size_t outSize) const = 0;
    // Decodes several segments, faster than one by one.
    virtual void decodeSeveral(const char* data, std::span<tSegmentCodes> segments) const = 0;
};
}  // namespace storage

#endif
