// Compresses bytes with a Huffman code made from their own counts: whole files, the records of a file one by one, or
// byte arrays. docs/formats.md describes what comes out; tHuffmanDecode reads it.
#ifndef KESTOVA_HUFFMANENCODE_H
#define KESTOVA_HUFFMANENCODE_H

#include <stddef.h>
#include <stdint.h>
#include <string>
#include <utility>

#include "KestovaStorage/huffmanhead.h"
#include "UdpSocket/kestovaapi.h"

namespace huffman
{
// What an encoder or decoder object is for; its other operations refuse.
enum tCodeMode : uint8_t
{
    eFileMode = 0,
    eSegmentMode = 1,
    eByteArrayMode = 2
};

// ((complete units of this segment, their bytes), (bits of earlier segments in front of them, bits of this segment)).
typedef std::pair<std::pair<char*, uint32_t>, std::pair<uint32_t, uint32_t>> tEncodedSegment;
// ((encoded bytes, their number), whether they are a new array that the caller releases with delete[]).
typedef std::pair<std::pair<char*, uint32_t>, bool> tEncodedResult;

class tHuffmanEncodePrivate;

// One thread at a time, except EncodeByteArray, which several threads may call on one object; PreReadClear,
// SetEncodeMode and GetHuffmanHead may run beside it. A byte that was never counted raises std::out_of_range
// ("map::at"); apart from that only std::bad_alloc leaves.
class KESTOVA_API tHuffmanEncode
{
public:
    tHuffmanEncode();  // for no mode yet: everything that needs one refuses
    explicit tHuffmanEncode(tCodeMode mode);
    virtual ~tHuffmanEncode();
    tHuffmanEncode(const tHuffmanEncode&) = delete;
    tHuffmanEncode& operator=(const tHuffmanEncode&) = delete;

    void SetEncodeMode(tCodeMode mode);  // and PreReadClear

    // ---- Segments (eSegmentMode): PreReadClear; PreReadSrcFileSegment for every record; PreReadFinish;
    // GetHuffmanHead; EncodeSrcFileSegment for every record, in the same order; SegmentEncodeFinish. ----

    // Forgets counts and codes, and what is left of a segment pass.
    void PreReadClear();
    // Counts the bytes of a record; false in another mode.
    bool PreReadSrcFileSegment(const std::string& segment);
    bool PreReadSrcFileSegment(const char* data, size_t len);
    uint32_t GetPreReadSize() const;  // bytes counted, modulo 2^32
    // Makes the codes. False in another mode or where nothing was counted. tHuffmanDecode gives back what they encode
    // where there are at least two byte values, no code is longer than 31 bits and no count exceeds 32 bits.
    bool PreReadFinish();
    // The 1303 bytes of a tFileHead; empty where nothing was counted. Prepares EncodeSrcFileSegment, prints one line.
    // Raises "map::at" for bytes counted after PreReadFinish or without it.
    std::string GetHuffmanHead();
    // Appends the codes of `len` bytes to the stream. Complete units come out, in a buffer of this object that the next
    // call uses again; what does not fill a unit is carried into the next call. ((null, 0), (0, 0)) in another mode or
    // before GetHuffmanHead. Where a byte was never counted, the codes before it are in the stream.
    tEncodedSegment EncodeSrcFileSegment(char* data, uint32_t len);
    // The bytes of the unit that is not complete (one more than needed where it holds whole bytes), in this object's
    // buffer; prints one line. The unit stays: call it once.
    tEncodedSegment SegmentEncodeFinish();

    // ---- Whole files (eFileMode) ----

    // Writes the compressed `srcFile` to `dstFile`, which is created or replaced; prints one line. False in another
    // mode, for what cannot be opened, for an empty source and for a destination that is the source. Write errors are
    // not noticed.
    bool Encode(const char* srcFile, const char* dstFile);

    // ---- Byte arrays (eByteArrayMode) ----

    // Compresses `len` bytes into `dst` or, where it is null or too small, into a new array. Only inputs in which no
    // byte value occurs more than 65535 times can be decoded again. ((null, 0), false) in another mode, for no bytes,
    // and where the result would need 4 GiB.
    tEncodedResult EncodeByteArray(const char* src, uint32_t len, char* dst, uint32_t dstLen);

    // Prints bytes in the order of the stream: bit 0 of each byte first. Nothing for `len` below 1.
    static void PrintBuffBinary(const char* buf, int len);

private:
    tHuffmanEncodePrivate* d;
};
}  // namespace huffman

#endif
