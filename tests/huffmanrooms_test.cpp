// The ways through the codec that depend on the processor and on the size of the input: all give the same bits.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KestovaStorage/internal/codec/codeemitter.h"
#include "KestovaStorage/internal/codec/lanedecoder.h"
#include "tests/support/huffmaninputs.h"
#include "tests/support/plainhuffman.h"

namespace
{
using namespace huffman;
using tBytes = std::vector<unsigned char>;  // of exactly the size that may be touched

tFreqTable freqsOf(const std::string& bytes)
{
    tByteCounter counter;
    counter.add(bytes.data(), bytes.size());
    return tFreqTable::of(counter.counts());
}

// All codes, to the last byte that has some; `worth`: how many times as much data the emitter is told to expect.
tBytes emitted(const std::string& bytes, eInstructions instructions, std::uint64_t worth, std::uint64_t& bits)
{
    tFreqTable freqs = freqsOf(bytes);
    tCodeTable codes;
    codes.set(tCodeTree(freqs));
    for (std::uint64_t& count : freqs.counts)
        count *= worth;
    tCodeEmitter emitter(instructions);
    emitter.set(codes, freqs.counts);
    tBytes out(emitter.room(bytes.size()));
    tPartialUnit partial;
    bits = emitter.emit(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), partial, out.data());
    std::memcpy(&out[bits / 64 * 8], &partial.bits, 8);
    out.resize((bits + 7) / 8);
    out.shrink_to_fit();
    return out;
}

template <typename tDecoder>
std::string decoded(tDecoder&& decoder, const tBytes& stored, std::uint64_t bits, std::size_t room)
{
    tBytes out(room);
    tBitRange range{stored.data(), 0, bits};
    const auto len = decoder.decode(range, out.data(), out.data() + room) - out.data();
    EXPECT_EQ(range.pos, bits);
    return {out.begin(), out.begin() + len};
}
}  // namespace

TEST(tHuffmanRoomsTest, agreeOnEveryProcessorAndForEveryAmount)
{
    std::string longest = tHuffmanInputs::fibonacci(32);  // codes of 1 to 31 bits, the rare ones in front
    for (std::size_t i = 10; i < 3000; ++i)
        std::swap(longest[i], longest[longest.size() - i * 999]);
    tHuffmanInputs inputs(11);
    for (int i = 0; i <= 200; ++i)
    {
        SCOPED_TRACE(i);
        const std::string bytes = i == 200 ? longest : "ab" + inputs.next(i % 20 == 0 ? 200'000 : 4000);
        const std::string stored = plain::pack(plain::encode(bytes, plain::codesOf(plain::freqsOf(bytes))));
        const std::uint64_t amount = i % 3 == 0 ? UINT64_MAX : inputs.below(100'000);  // decides the table's width
        for (const eInstructions instructions : {eInstructions::ePortable, eInstructions::eBest})
        {
            std::uint64_t bits = 0;
            for (const std::uint64_t worth : {1U, 1'000'000U})  // single bytes or vectors; pairs
            {
                const tBytes out = emitted(bytes, instructions, worth, bits);
                ASSERT_TRUE(std::string(out.begin(), out.end()) == stored);
            }
            const tBytes in(stored.begin(), stored.end());
            const std::size_t room = bytes.size() + tSymbolDecoder::cSlack;
            tSymbolTable table;
            table.build(freqsOf(bytes), amount, instructions);
            ASSERT_TRUE(decoded(tSymbolDecoder(table, instructions), in, bits, room) == bytes);
            tLaneDecoder lanes(table, instructions);
            ASSERT_TRUE(decoded(lanes, in, bits, room + lanes.roomFor(bits)) == bytes);
        }
    }
}

TEST(tHuffmanRoomsTest, countEveryByteOnceOnEveryProcessor)
{
    tByteCounter portable(eInstructions::ePortable), best;
    tByteCounts expected{};
    tHuffmanInputs inputs(12);
    for (int i = 0; i < 2000; ++i)
    {
        const std::string bytes = inputs.next(i % 100 == 0 ? 10'000 : 1200);
        const tBytes exact(bytes.begin(), bytes.end());
        for (const unsigned char byte : exact)
            ++expected[byte];
        portable.add(exact.data(), exact.size());
        best.add(exact.data(), exact.size());
        ASSERT_EQ(portable.counts(), expected) << i;
        if (i % 5 == 0)  // some of them are summed up together
        {
            ASSERT_EQ(best.counts(), expected) << i;
        }
    }
    best.clear();
    EXPECT_EQ(best.counts(), tByteCounts{});
}

TEST(tHuffmanRoomsTest, throwAwayLanesThatAreNeverInStep)
{
    std::string bytes(16'001, '\0');  // a lane begins every 16,001 bits
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i % 16);  // codes of 4 bits, which never fall into step
    std::uint64_t bits = 0;
    const tBytes stored = emitted(bytes, eInstructions::eBest, 1, bits);
    ASSERT_EQ(bits, 4 * bytes.size());
    tSymbolTable table;
    table.build(freqsOf(bytes), bits);
    tLaneDecoder lanes(table);
    EXPECT_EQ(decoded(lanes, stored, 10'000, bytes.size()), bytes.substr(0, 2500));  // a short range does not bind it
    EXPECT_EQ(decoded(lanes, stored, bits, bytes.size() + lanes.roomFor(bits)), bytes);
    EXPECT_GT(lanes.discardedLanes(), 0U);
}
