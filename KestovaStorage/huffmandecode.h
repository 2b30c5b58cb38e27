// Restores what tHuffmanEncode compressed. No damaged head, array or file makes it read outside its input or allocate
// more than that could decode to.
#ifndef KESTOVA_HUFFMANDECODE_H
#define KESTOVA_HUFFMANDECODE_H

#include <stddef.h>
#include <stdint.h>
#include <string>

#include "KestovaStorage/huffmanencode.h"
#include "UdpSocket/kestovaapi.h"

namespace huffman
{
class tHuffmanDecodePrivate;

// DecodeByteArray may be called from several threads on one object. After SetHuffmanHead any number of threads may
// decode segments; SetHuffmanHead itself must run alone.
class KESTOVA_API tHuffmanDecode
{
public:
    tHuffmanDecode();  // without a mode: every operation that needs one fails
    explicit tHuffmanDecode(tCodeMode mode);
    virtual ~tHuffmanDecode();
    tHuffmanDecode(const tHuffmanDecode&) = delete;
    tHuffmanDecode& operator=(const tHuffmanDecode&) = delete;

    void SetDecodeMode(tCodeMode mode);

    // ---- Segments (eSegmentMode) ----

    // Makes the tables for one file. Always returns false, on success as on failure; in another mode, or with another
    // magic, it changes nothing.
    bool SetHuffmanHead(const tFileHead& head);
    // Returns the bytes of one record: `firstBit` (0 to 7) is the place of its first bit in the first byte, `lastBits`
    // (1 to 8, 0 meaning 8) the number of valid bits in the last byte. Bits of an unfinished code at the end are
    // dropped. A record of one byte is decoded from its bit 0, whatever `firstBit` says: shift such a byte. Returns an
    // empty text if no head was set, or one that names fewer than two byte values.
    std::string DecodeSrcFileSegment(char* data, uint32_t len, uint8_t firstBit, uint8_t lastBits) const;

    // ---- Byte arrays (eByteArrayMode) ----

    // Returns the decoded bytes; empty in another mode and for anything but such an array.
    std::string DecodeByteArray(const char* src, uint32_t len);

    // ---- Whole files (eFileMode) ----

    // Writes the decoded `srcFile` to `dstFile`, which is created or replaced. The stored file does not hold its
    // length: the padding of its last unit is decoded like data, so that copies of the byte whose code is all zeros may
    // follow. A file of a single byte value decodes to an empty one. Returns false in another mode, if a file cannot be
    // opened, if the source has no whole head or no byte values, and for a destination that is the source. Does not
    // detect read and write errors.
    bool Decode(const char* srcFile, const char* dstFile);

private:
    tHuffmanDecodePrivate* d;
};
}  // namespace huffman

#endif
