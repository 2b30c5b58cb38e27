#include "KestovaStorage/internal/lanedecoder.h"

#include <algorithm>
#include <cstring>

#include "KestovaStorage/internal/littleendian.h"
#include "KestovaStorage/internal/symbollook.h"

namespace huffman
{
namespace
{
// Rounds that every lane can go without coming to its end.
template <typename tLanes>
std::uint64_t safeRounds(const tLanes& lanes)
{
    std::uint64_t rounds = UINT64_MAX;
    for (const auto& lane : lanes)
    {
        const std::uint64_t left = lane.range.left() < 64 ? 0 : lane.range.left() - 64;  // 8 bytes can be read
        rounds = std::min(rounds, left / cBitsThere);
    }
    return rounds;
}

// One lane's round: up to 56 bits.
KESTOVA_INLINE void decodeSome(const tSymbolTable& table, const std::uint64_t* entries, std::uint64_t mask,
                               const unsigned char* data, std::uint64_t& pos, unsigned char*& out)
{
    std::uint64_t bits = le::load<std::uint64_t>(data + pos / 8) >> (pos % 8);
    std::uint64_t used = look(entries, mask, bits, out);
    if (tSymbolTable::bitsOf(used) == 0)
    {
        const tSymbolTable::tSymbol symbol = table.longSymbol(used, bits >> table.width());
        if (symbol.length == 0)
            return;  // too long a code: the lane goes no further
        *out++ = symbol.value;
        pos += table.width() + symbol.length;
        return;
    }
    for (unsigned looks = 1; looks < cLooksAtOnce; ++looks)
        used += look(entries, mask, bits, out);
    pos += tSymbolTable::bitsOf(used);
}

template <typename tLanes>
KESTOVA_INLINE void decodeLanes(const tSymbolTable& table, tLanes& lanes)
{
    const std::uint64_t* const entries = table.entries();
    const std::uint64_t mask = (std::uint64_t{1} << table.width()) - 1;
    const unsigned char* const data = lanes[0].range.data;
    static_assert(std::tuple_size_v<tLanes> == 4);
    std::uint64_t pos[4];
    unsigned char* out[4];
    for (std::size_t i = 0; i < 4; ++i)
    {
        pos[i] = lanes[i].range.pos;
        out[i] = lanes[i].out;
    }
    for (std::uint64_t rounds = safeRounds(lanes); rounds != 0; --rounds)
    {
        decodeSome(table, entries, mask, data, pos[0], out[0]);
        decodeSome(table, entries, mask, data, pos[1], out[1]);
        decodeSome(table, entries, mask, data, pos[2], out[2]);
        decodeSome(table, entries, mask, data, pos[3], out[3]);
    }
    for (std::size_t i = 0; i < 4; ++i)
    {
        lanes[i].range.pos = pos[i];
        lanes[i].out = out[i];
    }
}

template <typename tLanes>
void decodeLanesPortable(const tSymbolTable& table, tLanes& lanes)
{
    decodeLanes(table, lanes);
}

template <typename tLanes>
KESTOVA_WITH_BMI2 void decodeLanesBmi2(const tSymbolTable& table, tLanes& lanes)
{
    decodeLanes(table, lanes);
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

// The first place behind the run-in of a guess at which a code probably begins.
std::uint64_t tLaneDecoder::guess(const tBitRange& range) const
{
    unsigned char ignored[cRunIn + tSymbolDecoder::cSlack];
    tBitRange runIn{range.data, range.pos, range.pos + cRunIn};
    m_decoder.decode(runIn, ignored, ignored + sizeof ignored);
    return runIn.pos;
}

tLaneDecoder::tLanes tLaneDecoder::makeLanes(const tBitRange& range, unsigned char* out, unsigned char* outEnd)
{
    const std::uint64_t bits = laneBits(range.left());
    const std::size_t room = laneRoom(bits);
    if (!m_scratch)
        m_scratch.reset(new unsigned char[(cLanes - 1) * room]);
    tLanes lanes;
    lanes[0] = {range, out, out, outEnd};
    for (std::size_t i = 1; i < cLanes; ++i)
    {
        unsigned char* const scratch = m_scratch.get() + (i - 1) * room;
        const std::uint64_t start = guess({range.data, range.pos + i * bits - cRunIn, range.end});
        lanes[i] = {{range.data, start, range.end}, scratch, scratch, scratch + room};
        lanes[i - 1].range.end = start;
    }
    lanes[cLanes - 1].range.end = range.pos + cLanes * bits;
    return lanes;
}

// Moves on by what the lanes decoded up to the first one that did not meet the next.
unsigned char* tLaneDecoder::decodeRound(tBitRange& range, unsigned char* out, unsigned char* outEnd)
{
    tLanes lanes = makeLanes(range, out, outEnd);
    usesBmi2(m_instructions) ? decodeLanesBmi2(m_table, lanes) : decodeLanesPortable(m_table, lanes);
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
        m_thrownAway += cLanes - 1 - i;
        break;
    }
    return out;
}
}  // namespace huffman
