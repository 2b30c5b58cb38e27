#include "KestovaStorage/internal/codec/segmentencoder.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>

#include "KestovaStorage/internal/codec/huffmanformat.h"
#include "UdpSocket/consoleprint.h"
#include "common/byteorder.h"

namespace huffman
{
void tSegmentEncoder::clear()
{
    m_counter.clear();
    m_codes.clear();
    m_partial = {};
    m_restorable = false;
    m_ready = false;
    m_countedBytes = 0;
    m_countedSegments = 0;
    m_encodedBits = 0;
    m_encodedSegments = 0;
}

void tSegmentEncoder::count(storage::iSegmentEncoder& other)
{
    auto& aside = static_cast<tSegmentEncoder&>(other);
    m_counter.add(aside.m_counter.counts());
    m_countedBytes += aside.m_countedBytes;
    m_countedSegments += aside.m_countedSegments;
}

bool tSegmentEncoder::makeCodes()
{
    m_freqs = tFreqTable::of(m_counter.counts());
    if (m_freqs.variety == 0)
        return false;
    const tCodeTree tree(m_freqs);
    m_codes.set(tree);
    m_restorable = tree.hasCodes() && tree.longest() <= cLongestFaithfulCode &&
                   std::all_of(m_freqs.counts.begin(), m_freqs.counts.end(), [](auto n) { return n <= UINT32_MAX; });
    return true;
}

std::uint64_t tSegmentEncoder::codeBits(const tFreqTable& freqs) const
{
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < freqs.variety; ++i)
    {
        const std::uint8_t value = freqs.values[i];
        if (!m_codes.present[value])
            throw std::out_of_range("map::at");
        bits += freqs.counts[value] * m_codes.codes[value].length;
    }
    return bits;
}

std::string tSegmentEncoder::head()
{
    const tFreqTable freqs = tFreqTable::of(m_counter.counts());  // the codes may be those of fewer bytes
    if (freqs.variety == 0)
        return {};
    const std::uint64_t bytes = std::accumulate(freqs.counts.begin(), freqs.counts.end(), std::uint64_t{0});
    const std::uint64_t bits = codeBits(freqs);
    std::string head = fileHeadBytes(freqs, bits);
    Kestova::console::print("==> Huffman PreRead Segments %d Compression Ratio %.3lf\r\n",
                            static_cast<int>(m_countedSegments),
                            static_cast<double>(bits) / (static_cast<double>(bytes) * 8));
    m_countedSegments = 0;
    useCodes(freqs);
    m_ready = true;
    return head;
}

std::string tSegmentEncoder::begin()
{
    return makeCodes() && isRestorable() ? head() : std::string();
}

tEncodedBits tSegmentEncoder::encode(const void* bytes, std::uint32_t len, char* out)
{
    const std::uint32_t firstBit = m_partial.count;
    const std::uint64_t bits =
        m_emitter.emit(static_cast<const unsigned char*>(bytes), len, m_partial, reinterpret_cast<unsigned char*>(out));
    m_encodedBits += bits;
    ++m_encodedSegments;
    const std::uint64_t stored = (firstBit + bits) / 64 * sizeof(tHuffmanDataUnit);
    return {firstBit, static_cast<std::uint32_t>(bits), static_cast<std::uint32_t>(stored)};
}

tEncodedRest tSegmentEncoder::rest()
{
    Kestova::console::print("==> Huffman Encoded Segments %u Bits %llu(64*%u...%u), LastValidBits %u\r\n",
                            m_encodedSegments, static_cast<unsigned long long>(m_encodedBits),
                            static_cast<unsigned>(m_encodedBits / 64), static_cast<unsigned>(m_encodedBits % 64),
                            m_partial.count);
    m_encodedBits = 0;
    m_encodedSegments = 0;
    tEncodedRest rest;
    le::store(rest.bytes, m_partial.bits);
    rest.size = m_partial.count == 0 ? 0 : m_partial.count / 8 + 1;  // kept: one byte more than 8, 16 ... bits need
    return rest;
}
}  // namespace huffman
