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
// The use of an encoder or decoder; the operations of other uses fail.
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
// SetEncodeMode and GetHuffmanHead may run beside it. Throws std::out_of_range ("map::at") for a byte that was never
// counted, and std::bad_alloc.
class KESTOVA_API tHuffmanEncode
{
public:
    tHuffmanEncode();  // without a mode: every operation that needs one fails
    explicit tHuffmanEncode(tCodeMode mode);
    virtual ~tHuffmanEncode();
    tHuffmanEncode(const tHuffmanEncode&) = delete;
    tHuffmanEncode& operator=(const tHuffmanEncode&) = delete;

    void SetEncodeMode(tCodeMode mode);  // and PreReadClear

    // ---- Segments (eSegmentMode): PreReadClear; PreReadSrcFileSegment for every record; PreReadFinish;
    // GetHuffmanHead; EncodeSrcFileSegment for every record, in the same order; SegmentEncodeFinish. ----

    // Drops counts and codes, and the rest of a segment pass.
    void PreReadClear();
    // Counts the bytes of a record; returns false in another mode.
    bool PreReadSrcFileSegment(const std::string& segment);
    bool PreReadBytes(const char* data, size_t len);
    uint32_t GetPreReadSize();  // bytes counted, modulo 2^32
    // Makes the codes; returns false in another mode or if nothing was counted. tHuffmanDecode restores what they
    // encode if there are at least two byte values, no code is longer than 31 bits and no count exceeds 32 bits.
    bool PreReadFinish();
    // Returns the 1303 bytes of a tFileHead; empty if nothing was counted. Prepares EncodeSrcFileSegment, prints one
    // line. Throws "map::at" for bytes counted after PreReadFinish or without it.
    std::string GetHuffmanHead();
    // Appends the codes of `len` bytes to the stream. Returns the complete units, in a buffer of this object that the
    // next call uses again, and carries the rest into the next call; ((null, 0), (0, 0)) in another mode or before
    // GetHuffmanHead. After a byte that was never counted, the codes before it are in the stream.
    tEncodedSegment EncodeSrcFileSegment(char* data, uint32_t len);
    // Returns the bytes of the unit that is not complete (one more than needed if it holds whole bytes), in this
    // object's buffer; prints one line. The unit stays: call it once.
    tEncodedSegment SegmentEncodeFinish();

    // ---- Whole files (eFileMode) ----

    // Writes the compressed `srcFile` to `dstFile`, which is created or replaced; prints one line. Returns false in
    // another mode, if a file cannot be opened, for an empty source and for a destination that is the source. Does not
    // detect write errors.
    bool Encode(const char* srcFile, const char* dstFile);

    // ---- Byte arrays (eByteArrayMode) ----

    // Compresses `len` bytes into `dst` or, if it is null or too small, into a new array. Only inputs in which no byte
    // value occurs more than 65535 times can be decoded. Returns ((null, 0), false) in another mode, for no bytes, and
    // if the result would need 4 GiB.
    tEncodedResult EncodeByteArray(const char* src, uint32_t len, char* dst, uint32_t dstLen);

    // Prints bytes in the order of the stream: bit 0 of each byte first. Nothing for `len` below 1.
    static void PrintBuffBinary(const char* buf, int len);

private:
    tHuffmanEncodePrivate* d;
};
}  // namespace huffman

#endif
