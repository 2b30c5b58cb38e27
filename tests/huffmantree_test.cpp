// The tree and its codes against the plain ones, and the dumps.
#include <string>

#include <gtest/gtest.h>

#include "KestovaStorage/huffmantree.h"
#include "tests/support/huffmaninputs.h"
#include "tests/support/plainhuffman.h"

namespace
{
using namespace huffman;

tHuffmanCodeMap codesOf(const tAlphaFreqMap& freqs)
{
    tHuffmanCodeMap codes{{0, "stale"}};
    tHuffmanTree(freqs).GetHuffmanCode(codes);
    return codes;
}
}  // namespace

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
    testing::internal::CaptureStdout();
    tHuffmanTree::PrintHuffmanCodeMap({}, {});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "************ HuffmanCode 0************\r\n"
                                                      "************ HuffmanCode ************\r\n");
}
