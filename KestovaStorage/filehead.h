// The numbers that distinguish kinds of files.
#ifndef KESTOVA_FILEHEAD_H
#define KESTOVA_FILEHEAD_H

#include <stdint.h>

namespace storage
{
// The first four bytes of a data file, as a little-endian number.
enum tFileHeadSymbol : uint32_t
{
    cDataFileHead = 3500153344u,    // 0xD0A01A00: plain data file
    cHuffmanFileHead = 3770736128u  // 0xE0C0DE00: Huffman file
};
}  // namespace storage

#endif
