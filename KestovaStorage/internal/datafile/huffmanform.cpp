#include "KestovaStorage/huffmanhead.h"
#include "KestovaStorage/internal/codec/segmentdecoder.h"
#include "KestovaStorage/internal/codec/segmentencoder.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/datafile/fileforms.h"

namespace storage
{
namespace
{
std::unique_ptr<iSegmentEncoder> newEncoder()
{
    return std::make_unique<huffman::tSegmentEncoder>();
}

std::unique_ptr<iSegmentDecoder> newDecoder(tDataFileReader& file)
{
    huffman::tFileHead head{};
    if (!file.read(0, sizeof head, reinterpret_cast<char*>(&head)))
        return nullptr;
    head.head = fileOrder(static_cast<std::uint32_t>(cHuffmanFileHead));  // a damaged magic costs no segment
    auto decoder = std::make_unique<huffman::tSegmentDecoder>();
    decoder->setHead(&head);
    return decoder;
}
}  // namespace

// Kept: a record without bits is a segment all of whose bytes have a code of no bits.
constexpr tFileForm cHuffmanForm{.number = cHuffmanFileHead,
                                 .name = "huffman",
                                 .lengthShift = 0,
                                 .firstBits = 0xFF,
                                 .emptyRecordEnds = false,
                                 .newEncoder = newEncoder,
                                 .newDecoder = newDecoder};
}  // namespace storage
