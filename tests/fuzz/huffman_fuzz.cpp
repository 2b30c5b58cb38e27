// Any bytes for the codec. As an encoded byte array: nothing outside them is read, and what comes out is no more than
// their bits can hold. As an input: what is encoded decodes to them again, and is what the plain codec makes. As a
// file's head and a segment: whatever the head says, decoding stays within the bits that it is given, and both ways of
// decoding a segment, and the plain codec, agree.
//
// A segment: the first 2 bytes are the number of entries, as in a head; up to 16 entries of 5 bytes follow, then the
// place of the first bit, the valid bits of the last byte, and the segment.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaStorage/internal/codec/segmentdecoder.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/huffmaninputs.h"
#include "tests/support/plainhuffman.h"

namespace
{
constexpr std::size_t cMostSize = 65535;  // no count exceeds 16 bits

void checkArray(const std::string& bytes)
{
    require(decodedArray(bytes).size() <= bytes.size() * 8);
    if (bytes.empty() || bytes.size() > cMostSize)
        return;
    huffman::tHuffmanEncode encoder(huffman::eByteArrayMode);
    const std::string array = plain::byteArray(bytes);
    require(encodedArray(encoder, bytes, array.size()) == std::pair(array, false));
    const bool oneValue = bytes.find_first_not_of(bytes[0]) == std::string::npos;
    require(decodedArray(array) == (oneValue ? "" : bytes));
}

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

void checkSegment(std::string_view bytes)
{
    const huffman::tFileHead head = headOf(bytes);
    const std::uint8_t firstBit = takeByte(bytes), lastBits = takeByte(bytes);
    huffman::tHuffmanDecode decoder(huffman::eSegmentMode);
    decoder.SetHuffmanHead(head);
    std::vector<char> exact(bytes.begin(), bytes.end());  // so that reading on is noticed
    const auto len = static_cast<std::uint32_t>(exact.size());
    const std::string text = decoder.DecodeSrcFileSegment(exact.data(), len, firstBit, lastBits);
    if (len < 2)
        return;
    const std::size_t first = std::min<unsigned>(firstBit, 8),
                      last = lastBits == 0 ? 8 : std::min<unsigned>(lastBits, 8);
    const std::size_t number = std::size_t{len} * 8 - 8 + last - first;
    require(text == decodedPlainly(head, plain::unpack(std::string(bytes)).substr(first, number)));
    huffman::tSegmentDecoder engine;
    require(engine.setHead(&head));
    std::vector<char> out(engine.roomFor(number));
    out.resize(engine.decode(exact.data(), first, number, out.data(), out.size()));
    require(text == std::string(out.begin(), out.end()));
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    checkArray(bytes);
    checkSegment(bytes);
    return 0;
}
