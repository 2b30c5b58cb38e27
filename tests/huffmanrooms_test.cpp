// the size of the input, which all give the same bits.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KestovaStorage/huffmantree.h"
#include "KestovaStorage/internal/codec/codeemitter.h"
#include "KestovaStorage/internal/codec/lanedecoder.h"
#include "tests/support/huffmaninputs.h"
#include "tests/support/plainhuffman.h"
#include "tests/support/segments.h"

namespace
{
using namespace huffman;
using tBytes = std::vector<unsigned char>;  // of exactly the size that may be touched
constexpr eInstructions cInstructions[] = {eInstructions::ePortable, eInstructions::eScalar, eInstructions::eBest};

tHuffmanCodeMap codesOf(const tAlphaFreqMap& freqs)
{
    tHuffmanCodeMap codes{{0, "stale"}};
    tHuffmanTree(freqs).GetHuffmanCode(codes);
    return codes;
}

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
        for (const eInstructions instructions : cInstructions)
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

TEST(tHuffmanRoomsTest, agreeForRecordsOfEveryLength)
{
    const std::string rare = tHuffmanInputs::fibonacci(24);  // some codes are too long for vectors
    for (const std::string& bytes :
         {rare.substr(0, 20'000) + std::string(50'000, rare.back()), noise().substr(0, 40'000)})
    {
        const tFreqTable freqs = freqsOf(bytes);
        tCodeTable codes;
        codes.set(tCodeTree(freqs));
        const std::string stored = plain::pack(plain::encode(bytes, plain::codesOf(plain::freqsOf(bytes))));
        for (const eInstructions instructions : cInstructions)
        {
            tCodeEmitter emitter(instructions);
            emitter.set(codes, freqs.counts);
            std::string out;
            tPartialUnit partial;
            for (std::size_t at = 0, len = 0; at < bytes.size(); at += len, ++len)
            {
                len = std::min(len % 300, bytes.size() - at);
                const tBytes record(bytes.begin() + static_cast<long>(at), bytes.begin() + static_cast<long>(at + len));
                tBytes room(emitter.room(len));
                const unsigned before = partial.count;
                const std::uint64_t bits = emitter.emit(record.data(), len, partial, room.data());
                out.append(reinterpret_cast<const char*>(room.data()), (before + bits) / 64 * 8);
            }
            out.append(reinterpret_cast<const char*>(&partial.bits), (partial.count + 7) / 8);
            ASSERT_TRUE(out == stored);
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

TEST(tHuffmanRoomsTest, countLargeInputsAsTheirPieces)
{
    constexpr std::size_t cPiece = 1001;
    tHuffmanInputs inputs(13);
    std::string bytes;
    while (bytes.size() < (std::size_t{5} << 20))
        bytes += inputs.next(10'000) + std::string(bytes.size() % 50, '\0');
    tByteCounter whole(eInstructions::ePortable), pieces(eInstructions::ePortable);
    whole.add(bytes.data() + 1, bytes.size() - 1);
    for (std::size_t at = 1; at < bytes.size(); at += cPiece)
        pieces.add(bytes.data() + at, std::min(cPiece, bytes.size() - at));
    EXPECT_EQ(whole.counts(), pieces.counts());
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

TEST(tHuffmanTreeTest, givesTheCodesOfThePlainTree)
{
    tHuffmanInputs inputs(7);
    for (int i = 0; i < 2000; ++i)
    {
        SCOPED_TRACE(i);
        tAlphaFreqMap freqs;
        const std::size_t most = std::size_t{1} << inputs.below(40);  // often many equal counts, zeros too
        for (std::size_t n = 1 + inputs.below(256); n > 0; --n)
            freqs[static_cast<std::uint8_t>(inputs.below(256))] = inputs.below(most + 1);
        if (i % 50 == 0)
            freqs[1] = ~std::uint64_t{0};  // sums wrap
        ASSERT_EQ(codesOf(freqs), plain::codesOf(freqs));
        tHuffmanTree tree(freqs);
        ASSERT_EQ(tree.GetHuffmanTree().freq, plain::treeOf(freqs).freq);
        ASSERT_EQ(tree.GetHuffmanTree().left == nullptr, freqs.size() == 1);
    }
    EXPECT_EQ(codesOf({{0x41, 5}, {0x42, 2}, {0x43, 2}}), (tHuffmanCodeMap{{0x41, "0"}, {0x42, "11"}, {0x43, "10"}}));
    EXPECT_EQ(codesOf({}), tHuffmanCodeMap());
    EXPECT_EQ(tHuffmanTree({}).GetHuffmanTree().left, nullptr);
}

TEST(tHuffmanTreeTest, deletesSubtreesOfTheCallerAndNoneOfItsOwn)
{
    tHuffmanTree tree({{0x41, 5}, {0x42, 2}, {0x43, 2}});
    const tNode own = tree.GetHuffmanTree();
    tNode* const leaf = new tNode{1, 1, nullptr, nullptr};
    tree.deleteTree(new tNode{'*', 1, leaf, nullptr});  // a leak, if it stays, for the address sanitizer
    tree.deleteTree(own.left);
    tree.deleteTree(nullptr);

    tHuffmanCodeMap codes;
    tree.huffmanCode(&own, "1", codes);
    EXPECT_EQ(codes, (tHuffmanCodeMap{{0x41, "10"}, {0x42, "111"}, {0x43, "110"}}));
}

TEST(tHuffmanTreeTest, packsCodesFromBitZeroAndWrapsAt32)
{
    tHuffmanEncodeMap encode{{9, {1, 1}}};
    const std::string zeros(31, '0');
    tHuffmanTree::HuffmanCodeMap2EncodeMap({{1, "011"}, {2, "1"}, {3, zeros + "1"}, {4, zeros + "01"}, {5, ""}},
                                           encode);
    EXPECT_EQ(encode,
              (tHuffmanEncodeMap{{1, {6, 3}}, {2, {1, 1}}, {3, {0xffffffff80000000, 32}}, {4, {1, 33}}, {5, {0, 0}}}));
}

TEST(tHuffmanTreeTest, printsCountsAndCodes)
{
    testing::internal::CaptureStdout();
    tHuffmanTree::PrintAlphaFreq({});
    tHuffmanTree::PrintAlphaFreq({{1, 2}, {2, 3}, {3, 4}, {4, 5}, {0xab, 0x1'0000'0000}, {0xff, 1}});
    tHuffmanTree::PrintHuffmanCodeMap({{1, "011"}, {0xff, ""}}, {{1, {6, 3}}, {0xff, {0, 0}}});
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "************ AlphaFreq 6************\r\n"
              "0x01 2  \t0x02 3  \t0x03 4  \t0x04 5  \t0xAB 4294967296  \r\n0xFF 1  \t"
              "\r\n************  TotalFreq: 0x10000000F ************\r\n"
              "************ HuffmanCode 2************\r\n"
              "0x01 : 0000000000000006 03 011\r\n"
              "0xFF : 0000000000000000 00 \r\n"
              "************ HuffmanCode ************\r\n");
}
