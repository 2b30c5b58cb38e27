#include "KestovaStorage/internal/codec/lanedecoder.h"

#include <algorithm>
#include <cstring>

#include "KestovaStorage/internal/codec/symbollookup.h"
#include "common/byteorder.h"

namespace huffman
{
namespace
{
// The rounds that no lane's end cuts short.
template <typename tLanes>
std::uint64_t safeRounds(const tLanes& lanes)
{
    std::uint64_t rounds = UINT64_MAX;
    for (const auto& lane : lanes)
    {
        const std::uint64_t left = lane.range.left() < 64 ? 0 : lane.range.left() - 64;  // 8 bytes can be read
        rounds = std::min(rounds, left / cBitsLoaded);
    }
    return rounds;
}

// One lane's round: up to 56 bits.
KESTOVA_INLINE void decodeStep(const tSymbolTable& table, const tSymbolLookup& lookups, const unsigned char* data,
                               std::uint64_t& pos, unsigned char*& out)
{
    std::uint64_t bits = le::load<std::uint64_t>(data + pos / 8) >> (pos % 8);
    const std::uint64_t index = bits & lookups.mask;
    if (lookups.lengths[index] == 0)
    {
        const tSymbolTable::tSymbol symbol = table.longSymbol(lookups.entries[index], bits >> table.width());
        if (symbol.length == 0)
            return;  // too long a code: the lane stops here
        *out++ = symbol.value;
        pos += table.width() + symbol.length;
        return;
    }
    std::uint64_t used = lookups.take(index, bits, out);
    for (unsigned looks = 1; looks < cLooksAtOnce; ++looks)
        used += lookups.take(bits, out);
    pos += used;
}

template <typename tLanes>
KESTOVA_INLINE void decodeRounds(const tSymbolTable& table, const tSymbolLookup lookups, tLanes& lanes,
                                 std::uint64_t rounds)
{
    const unsigned char* const data = lanes[0].range.data;
    static_assert(std::tuple_size_v<tLanes> == 4);
    std::uint64_t pos[4];
    unsigned char* out[4];
    for (std::size_t i = 0; i < 4; ++i)
    {
        pos[i] = lanes[i].range.pos;
        out[i] = lanes[i].out;
    }
    for (; rounds != 0; --rounds)
    {
        decodeStep(table, lookups, data, pos[0], out[0]);
        decodeStep(table, lookups, data, pos[1], out[1]);
        decodeStep(table, lookups, data, pos[2], out[2]);
        decodeStep(table, lookups, data, pos[3], out[3]);
    }
    for (std::size_t i = 0; i < 4; ++i)
    {
        lanes[i].range.pos = pos[i];
        lanes[i].out = out[i];
    }
}

template <typename tLanes>
void decodeRoundsPortable(const tSymbolTable& table, tLanes& lanes, std::uint64_t rounds)
{
    decodeRounds(table, tSymbolLookup(table), lanes, rounds);
}

template <typename tLanes>
KESTOVA_WITH_BMI2 void decodeRoundsBmi2(const tSymbolTable& table, tLanes& lanes, std::uint64_t rounds)
{
    decodeRounds(table, tSymbolLookup(table), lanes, rounds);
}
}  // namespace

tLaneDecoder::tLaneDecoder(const tSymbolTable& table, eInstructions instructions)
    : m_table(table), m_decoder(table, instructions), m_instructions(instructions)
{}

unsigned char* tLaneDecoder::decode(tBitRange& range, unsigned char* out, unsigned char* outEnd)
{
    const unsigned char* const begin = out;
    while (range.left() >= cWorthLanes && static_cast<std::size_t>(outEnd - out) >= roomFor(range.left()))
        out = decodeRound(range, out, outEnd);
    const bool worthLanesAgain = out != begin && range.left() >= cWorthLanes;
    return worthLanesAgain ? out : m_decoder.decode(range, out, outEnd);
}

tLaneDecoder::tLanes tLaneDecoder::makeLanes(const tBitRange& range, unsigned char* out, unsigned char* outEnd)
{
    const std::uint64_t bits = laneBits(range.left());
    const std::size_t room = laneRoom(bits);
    if (m_scratchSize < (cLanes - 1) * room)
    {
        m_scratch.reset(new unsigned char[(cLanes - 1) * room]);
        m_scratchSize = (cLanes - 1) * room;
    }
    tLanes lanes;
    for (std::size_t i = 0; i < cLanes; ++i)
    {
        const std::uint64_t start = range.pos + i * bits - (i == 0 ? 0 : cRunIn);
        unsigned char* const to = i == 0 ? out : m_scratch.get() + (i - 1) * room;
        lanes[i] = {{range.data, start, start + cRunIn}, to, to, i == 0 ? outEnd : to + room};
    }
    decodeTogether(lanes);
    for (std::size_t i = 1; i < cLanes; ++i)
    {
        lanes[i].begin = lanes[i].out;
        lanes[i - 1].range.end = lanes[i].range.pos;
    }
    lanes[cLanes - 1].range.end = range.pos + cLanes * bits;
    return lanes;
}

// Brings all lanes near their ends, or up to a code that is too long.
void tLaneDecoder::decodeTogether(tLanes& lanes) const
{
    const auto positions = [&] {
        return lanes[0].range.pos + lanes[1].range.pos + lanes[2].range.pos + lanes[3].range.pos;
    };
    std::uint64_t before;
    do
    {
        before = positions();
        const std::uint64_t rounds = safeRounds(lanes);
        usesBmi2(m_instructions) ? decodeRoundsBmi2(m_table, lanes, rounds)
                                 : decodeRoundsPortable(m_table, lanes, rounds);
    } while (positions() != before);
}

void tLaneDecoder::decodeEach(tLanes& lanes) const
{
    decodeTogether(lanes);
    for (tLane& lane : lanes)
        lane.out = m_decoder.decode(lane.range, lane.out, lane.outEnd);
}

// Takes what the lanes decoded, up to the first one that does not end at the start of the next.
unsigned char* tLaneDecoder::decodeRound(tBitRange& range, unsigned char* out, unsigned char* outEnd)
{
    tLanes lanes = makeLanes(range, out, outEnd);
    decodeTogether(lanes);
    for (std::size_t i = 0; i < cLanes; ++i)
    {
        tLane& lane = lanes[i];
        lane.out = m_decoder.decode(lane.range, lane.out, lane.outEnd);
        const auto decoded = static_cast<std::size_t>(lane.out - lane.begin);
        if (i != 0)
            std::memcpy(out, lane.begin, decoded);
        out += decoded;
        range.pos = lane.range.pos;
        if (lane.range.pos == lane.range.end)
            continue;
        m_discardedLanes += cLanes - 1 - i;
        break;
    }
    return out;
}
}  // namespace huffman
