#include "KestovaStorage/internal/codec/huffmanformat.h"

#include <algorithm>

#include "common/byteorder.h"

namespace huffman
{
namespace
{
// Stores one entry per byte value in ascending order; returns the end of them.
template <typename tEntry, typename tCount>
char* writeEntries(const tFreqTable& freqs, char* to)
{
    for (std::size_t i = 0; i < freqs.variety; ++i)
    {
        const std::uint8_t value = freqs.values[i];
        to[offsetof(tEntry, alpha)] = static_cast<char>(value);
        le::store(to + offsetof(tEntry, freq), static_cast<tCount>(freqs.counts[value]));
        to += sizeof(tEntry);
    }
    return to;
}

// A repeated value overwrites its count.
template <typename tEntry, typename tCount>
void readEntries(const char* from, std::size_t number, tFreqTable& freqs)
{
    freqs.counts.fill(0);
    freqs.variety = 0;
    bool ascending = true;  // the order in which they are written; any other is listed afterwards
    int last = -1;
    const auto valueOf = [&](std::size_t i) {
        return static_cast<std::uint8_t>(from[i * sizeof(tEntry) + offsetof(tEntry, alpha)]);
    };
    for (std::size_t i = 0; i < number; ++i)
    {
        const std::uint8_t value = valueOf(i);
        freqs.counts[value] = le::load<tCount>(from + i * sizeof(tEntry) + offsetof(tEntry, freq));
        ascending = ascending && value > last;
        last = value;
        if (ascending)
            freqs.values[freqs.variety++] = value;
    }
    if (ascending)
        return;
    std::array<bool, cByteValues> present{};
    for (std::size_t i = 0; i < number; ++i)
        present[valueOf(i)] = true;
    freqs.list([&](std::size_t value) { return present[value]; });
}

// The number of valid bits in the last unit of `unit` bits: never 0.
char lastValidBits(std::uint64_t bits, unsigned unit)
{
    return static_cast<char>(bits % unit == 0 ? unit : bits % unit);
}

bool isHuffman(const char* head)
{
    return le::load<std::uint32_t>(head) == storage::cHuffmanFileHead;
}
}  // namespace

std::string fileHeadBytes(const tFreqTable& freqs, std::uint64_t bits)
{
    std::string bytes(sizeof(tFileHead), '\0');
    le::store(&bytes[offsetof(tFileHead, head)], std::uint32_t{storage::cHuffmanFileHead});
    le::store(&bytes[offsetof(tFileHead, alphaVariety)], static_cast<std::uint16_t>(freqs.variety));
    bytes[offsetof(tFileHead, lastValidBit)] = lastValidBits(bits, 64);
    writeEntries<tAlphaFreq, std::uint32_t>(freqs, &bytes[offsetof(tFileHead, alphaFreqs)]);
    return bytes;
}

bool readFileHead(const void* head, tFreqTable& freqs)
{
    const char* const bytes = static_cast<const char*>(head);
    if (!isHuffman(bytes))
        return false;
    const std::size_t variety = le::load<std::uint16_t>(bytes + offsetof(tFileHead, alphaVariety));
    readEntries<tAlphaFreq, std::uint32_t>(bytes + offsetof(tFileHead, alphaFreqs), std::min(variety, cByteValues),
                                           freqs);
    return true;
}

char* writeByteArrayHead(const tFreqTable& freqs, std::uint64_t bits, char* to)
{
    le::store(to + offsetof(tByteArrayHead, head), std::uint32_t{storage::cHuffmanFileHead});
    le::store(to + offsetof(tByteArrayHead, alphaVariety), static_cast<std::uint16_t>(freqs.variety));
    to[offsetof(tByteArrayHead, lastValidBit)] = lastValidBits(bits, 8);
    return writeEntries<tByteArrayAlphaFreq, std::uint16_t>(freqs, to + sizeof(tByteArrayHead));
}

bool readByteArray(const char* src, std::size_t len, tByteArrayContents& contents)
{
    if (src == nullptr || len < sizeof(tByteArrayHead) || !isHuffman(src))
        return false;
    const std::size_t variety = le::load<std::uint16_t>(src + offsetof(tByteArrayHead, alphaVariety));
    const std::size_t headSize = byteArrayHeadSize(variety);
    if (len <= headSize)
        return false;
    readEntries<tByteArrayAlphaFreq, std::uint16_t>(src + sizeof(tByteArrayHead), variety, contents.freqs);
    contents.payload = src + headSize;
    contents.payloadLen = len - headSize;
    const auto claimed = static_cast<std::uint8_t>(src[offsetof(tByteArrayHead, lastValidBit)]);
    contents.bits = (std::uint64_t{contents.payloadLen} - 1) * 8 + bitsOfLastByte(claimed);
    return true;
}
}  // namespace huffman
