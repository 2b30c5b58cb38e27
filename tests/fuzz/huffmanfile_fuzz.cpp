// A file's head and its segments out of any bytes: whatever the head says, decoding stays within the bits that it is
// given, and both ways of decoding a segment, and the plain codec, agree.
//
// The first 2 bytes are the number of entries, as in a head; up to 16 entries of 5 bytes follow, then the place of the
// first bit, the valid bits of the last byte, and the segment.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaStorage/huffmandecode.h"
#include "KestovaStorage/internal/codec/segmentdecoder.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/plainhuffman.h"

namespace
{
huffman::tFileHead headOf(std::string_view& bytes)
{
    huffman::tFileHead head{};
    head.head = storage::cHuffmanFileHead;
    head.alphaVariety = takeByte(bytes);
    head.alphaVariety = static_cast<std::uint16_t>(head.alphaVariety | takeByte(bytes) << 8);
    const std::string_view entries = take(bytes, std::min<std::size_t>(head.alphaVariety, 16) * 5);
    entries.copy(reinterpret_cast<char*>(head.alphaFreqs), entries.size());
    return head;
}

// As the format says it, from the head.
std::string decodedPlainly(const huffman::tFileHead& head, const std::string& bits)
{
    plain::tFreqs freqs;
    for (unsigned i = 0; i < std::min<unsigned>(head.alphaVariety, 256); ++i)
        freqs[head.alphaFreqs[i].alpha] = head.alphaFreqs[i].freq;
    return freqs.empty() ? "" : plain::decode(bits, plain::treeOf(freqs));
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const huffman::tFileHead head = headOf(bytes);
    const std::uint8_t firstBit = takeByte(bytes), lastBits = takeByte(bytes);
    huffman::tHuffmanDecode decoder(huffman::eSegmentMode);
    decoder.SetHuffmanHead(head);
    std::vector<char> exact(bytes.begin(), bytes.end());  // so that reading on is noticed
    const auto len = static_cast<std::uint32_t>(exact.size());
    const std::string text = decoder.DecodeSrcFileSegment(exact.data(), len, firstBit, lastBits);
    if (len < 2)
        return 0;
    const std::size_t first = std::min<unsigned>(firstBit, 8),
                      last = lastBits == 0 ? 8 : std::min<unsigned>(lastBits, 8);
    const std::size_t number = std::size_t{len} * 8 - 8 + last - first;
    require(text == decodedPlainly(head, plain::unpack(std::string(bytes)).substr(first, number)));
    huffman::tSegmentDecoder engine;
    require(engine.setHead(&head));
    std::vector<char> out(engine.roomFor(number));
    out.resize(engine.decode(exact.data(), first, number, out.data(), out.size()));
    require(text == std::string(out.begin(), out.end()));
    return 0;
}
