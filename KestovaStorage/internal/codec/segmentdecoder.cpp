#include "KestovaStorage/internal/codec/segmentdecoder.h"

#include <numeric>

#include "KestovaStorage/internal/codec/huffmanformat.h"
#include "KestovaStorage/internal/codec/lanedecoder.h"
#include "KestovaStorage/internal/codec/symboldecoder.h"

namespace huffman
{
namespace
{
std::uint64_t bitsOf(const tCodeTree& tree)
{
    std::uint64_t bits = 0;
    for (std::size_t leaf = 0; leaf < tree.leaves(); ++leaf)
        bits += tree.freq(leaf) * tree.code(leaf).length;
    return bits;
}
}  // namespace

bool tSegmentDecoder::setHead(const void* head)
{
    tFreqTable freqs;
    if (!readFileHead(head, freqs))
        return false;
    m_table.build(freqs, UINT64_MAX);
    m_countedBits = hasCodes() ? bitsOf(m_table.tree()) : 0;
    m_countedBytes = std::accumulate(freqs.counts.begin(), freqs.counts.end(), std::uint64_t{0});
    return true;
}

std::size_t tSegmentDecoder::decode(const char* data, std::uint64_t firstBit, std::uint64_t bits, char* out,
                                    std::size_t outSize) const
{
    if (!hasRoom(bits, outSize))
        return 0;
    const auto* const codes = reinterpret_cast<const unsigned char*>(data);
    tBitRange range{codes + firstBit / 8, firstBit % 8, firstBit % 8 + bits};
    unsigned char *const to = reinterpret_cast<unsigned char*>(out), *end = to;
    if (bits >= tLaneDecoder::cWorthLanes)
        end = tLaneDecoder(m_table).decode(range, end, to + outSize);
    end = tSymbolDecoder(m_table).decode(range, end, to + outSize);
    return static_cast<std::size_t>(end - to);
}

// Segments whose places are known need no guess at where a lane begins: four of them are four lanes.
void tSegmentDecoder::decodeSeveral(const char* data, std::span<storage::tSegmentCodes> segments) const
{
    const auto* const codes = reinterpret_cast<const unsigned char*>(data);
    while (segments.size() >= tLaneDecoder::cLanes)
    {
        tLaneDecoder::tLanes lanes;
        bool haveRoom = true;
        for (std::size_t i = 0; i < tLaneDecoder::cLanes; ++i)
        {
            const storage::tSegmentCodes& segment = segments[i];
            auto* const out = reinterpret_cast<unsigned char*>(segment.out);
            lanes[i] = {{codes, segment.firstBit, segment.firstBit + segment.bits}, out, out, out + segment.outSize};
            haveRoom &= hasRoom(segment.bits, segment.outSize);
        }
        if (!haveRoom)
            break;
        tLaneDecoder(m_table).decodeEach(lanes);
        for (std::size_t i = 0; i < tLaneDecoder::cLanes; ++i)
            segments[i].decoded = static_cast<std::size_t>(lanes[i].out - lanes[i].begin);
        segments = segments.subspan(tLaneDecoder::cLanes);
    }
    for (storage::tSegmentCodes& segment : segments)
        segment.decoded = decode(data, segment.firstBit, segment.bits, segment.out, segment.outSize);
}

// outSize >= roomFor(bits), without a division.
bool tSegmentDecoder::hasRoom(std::uint64_t bits, std::size_t outSize) const
{
    return hasCodes() && outSize >= tSymbolDecoder::cSlack &&
           (outSize - tSymbolDecoder::cSlack + 1) * m_table.tree().shortest() > bits;
}

std::size_t tSegmentDecoder::roomFor(std::uint64_t bits) const
{
    const std::uint64_t symbols = hasCodes() ? bits / m_table.tree().shortest() : 0;
    return static_cast<std::size_t>(symbols) + tSymbolDecoder::cSlack;
}
}  // namespace huffman
