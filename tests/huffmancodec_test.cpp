// Encoder and decoder against the plain ones, on many inputs; and what they do at their edges.
#include <algorithm>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <iostream>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "KestovaStorage/huffmantree.h"
#include "KestovaStorage/internal/codec/segmentdecoder.h"
#include "KestovaStorage/internal/codec/segmentencoder.h"
#include "support/filebytes.h"
#include "tests/support/huffmaninputs.h"
#include "tests/support/plainhuffman.h"
#include "tests/support/tempdir.h"

namespace
{
using namespace huffman;

class tHuffmanCodecTest : public testing::Test
{
protected:
    // What the codec prints is kept, and shown only where the test fails.
    tHuffmanCodecTest() { testing::internal::CaptureStdout(); }
    ~tHuffmanCodecTest() override
    {
        const std::string text = testing::internal::GetCapturedStdout();
        if (HasFailure())
            std::cout << text;
    }
    static std::string printed()
    {
        const std::string text = testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        return text;
    }
    static void write(const std::string& path, const std::string& bytes)
    {
        std::ofstream(path, std::ios::binary) << bytes;
    }

    const tTempDir folder;
    const std::string src = folder.file("src"), packed = folder.file("packed"), out = folder.file("out");
    tHuffmanEncode files{eFileMode}, arrays{eByteArrayMode};
    tHuffmanDecode fileDecoder{eFileMode}, segmentDecoder{eSegmentMode};
    tSegmentDecoder engineDecoder;
    char twoBytes[2] = {'\x1b', '\x05'};
};

tFileHead headOf(const std::string& bytes)
{
    tFileHead head{};
    std::memcpy(&head, bytes.data(), std::min(bytes.size(), sizeof head));
    return head;
}

// A pass over records: what is stored, and where each record's bits are.
class tSegmentPass
{
public:
    explicit tSegmentPass(const std::vector<std::string>& counted)
    {
        for (const std::string& record : counted)
            EXPECT_TRUE(encoder.PreReadSrcFileSegment(record));
        EXPECT_TRUE(encoder.PreReadFinish());
        head = encoder.GetHuffmanHead();
    }
    tSegmentPass& add(std::string record)
    {
        const tEncodedSegment segment =
            encoder.EncodeSrcFileSegment(record.data(), static_cast<uint32_t>(record.size()));
        EXPECT_LT(segment.second.first, 64U);
        places.emplace_back(stored.size() * 8 + segment.second.first, segment.second.second);
        stored.append(segment.first.first, segment.first.second);
        return *this;
    }
    uint32_t finish()  // the bytes that it adds
    {
        const tEncodedSegment rest = encoder.SegmentEncodeFinish();
        stored.append(rest.first.first, rest.first.second);
        return rest.first.second;
    }
    // Through the storage engine's door.
    std::string decoded(std::size_t record, const tSegmentDecoder& decoder) const
    {
        const auto [first, number] = places[record];
        std::string out(decoder.roomFor(number), '\0');
        out.resize(decoder.decode(stored.data(), first, number, out.data(), out.size()));
        return out;
    }

    tHuffmanEncode encoder{eSegmentMode};
    std::string head, stored;
    std::vector<std::pair<std::size_t, std::size_t>> places;  // first bit and number of bits of each record
};

tSegmentEncoder counted(const std::vector<std::string>& records)
{
    tSegmentEncoder encoder;
    for (const std::string& record : records)
        encoder.count(record.data(), record.size());
    EXPECT_TRUE(encoder.makeCodes());
    return encoder;
}

// Head and codes as the storage engine has them made, into buffers of exactly the size that may be touched.
std::string storedByEngine(const std::vector<std::string>& records)
{
    tSegmentEncoder encoder = counted(records);
    std::string stored = encoder.head();
    for (const std::string& record : records)
    {
        std::vector<char> buffer(encoder.room(record.size()));
        stored.append(buffer.data(),
                      encoder.encode(record.data(), static_cast<uint32_t>(record.size()), buffer.data()).stored);
    }
    const tEncodedRest rest = encoder.rest();
    return stored.append(rest.bytes, rest.size);
}
}  // namespace

TEST_F(tHuffmanCodecTest, makesByteArraysLikeThePlainOne)
{
    tHuffmanInputs inputs(1);
    for (int i = 0; i < 3000; ++i)
    {
        const std::string in = inputs.next(i % 100 == 0 ? 60'000 : 1 << i % 12);
        const std::string array = encodedArray(arrays, in).first;
        ASSERT_EQ(array, in.empty() ? "" : plain::byteArray(in)) << "input " << i;
        const bool codes = in.size() > 1 && in.find_first_not_of(in[0]) != std::string::npos;
        ASSERT_EQ(decodedArray(array), codes ? in : "") << "input " << i;
    }
    const std::string documented("\x00\xde\xc0\xe0\x05\x00\x07"
                                 "a\5\0b\2\0c\1\0d\1\0r\2\0"
                                 "\x89\xae\x44",
                                 25);
    EXPECT_EQ(encodedArray(arrays, "abracadabra").first, documented);
}

TEST_F(tHuffmanCodecTest, makesOneStreamOfSegmentsAndFindsEachAgain)
{
    tHuffmanInputs inputs(2);
    for (int i = 0; i < 300; ++i)
    {
        std::vector<std::string> records;
        for (std::size_t n = 2 + inputs.below(20); n > 0; --n)
            records.push_back(inputs.next(1 << inputs.below(11)));
        records.emplace_back("\x01\x02");
        const std::string all = std::accumulate(records.begin(), records.end(), std::string());
        const plain::tFreqs freqs = plain::freqsOf(all);
        const std::string bits = plain::encode(all, plain::codesOf(freqs));
        tSegmentPass pass(records);
        for (const std::string& record : records)
            pass.add(record);
        pass.finish();
        ASSERT_EQ(pass.head, plain::fileHead(freqs, bits.size()));
        ASSERT_EQ(plain::unpack(pass.stored).substr(0, bits.size()), bits);
        ASSERT_EQ(storedByEngine(records), pass.head + pass.stored);
        ASSERT_FALSE(segmentDecoder.SetHuffmanHead(headOf(pass.head)));
        ASSERT_TRUE(engineDecoder.setHead(pass.head.data()));
        ASSERT_EQ(engineDecoder.countedBits(), bits.size());
        for (std::size_t r = 0; r < records.size(); ++r)
        {
            ASSERT_EQ(pass.decoded(r, engineDecoder), records[r]);
            const auto [first, number] = pass.places[r];
            const std::size_t last = first + number;
            std::string held = pass.stored.substr(first / 8, (last + 7) / 8 - first / 8);
            if (held.size() == 1)
                continue;
            ASSERT_EQ(segmentDecoder.DecodeSrcFileSegment(held.data(), static_cast<uint32_t>(held.size()),
                                                          static_cast<uint8_t>(first % 8),
                                                          static_cast<uint8_t>(last % 8)),
                      records[r]);
        }
    }
}

TEST_F(tHuffmanCodecTest, makesFilesLikeThePlainOneAndTheGoldenOne)
{
    const std::string path = KESTOVA_TEST_DATA "/huffman_sentences.huf", golden = contentsOf(path);
    ASSERT_TRUE(fileDecoder.Decode(path.c_str(), out.c_str()));
    const std::string sentences = contentsOf(out).substr(0, 3272);  // the rest fills the last unit
    EXPECT_TRUE(sentences.starts_with("$GPRMC,083000.00,A,5312.6229,N,") &&
                sentences.ends_with("$HEHDT,299.3,T*2E\r\n"));
    tHuffmanInputs inputs(3);
    for (int i = 0; i < 60; ++i)
    {
        SCOPED_TRACE(i);
        const std::string in = i == 0 ? sentences : "ab" + inputs.next(i % 10 == 1 ? 900'000 : 3000);
        write(src, in);
        ASSERT_TRUE(files.Encode(src.c_str(), packed.c_str()));
        ASSERT_TRUE(contentsOf(packed) == plain::file(in) && (i > 0 || contentsOf(packed) == golden));
        ASSERT_TRUE(fileDecoder.Decode(packed.c_str(), out.c_str()));
        const std::string payload = plain::unpack(contentsOf(packed).substr(1303));  // to the end of the last unit
        ASSERT_TRUE(contentsOf(out) == plain::decode(payload, plain::treeOf(plain::freqsOf(in))));
        ASSERT_TRUE(contentsOf(out).starts_with(in));
    }
}

TEST_F(tHuffmanCodecTest, givesBackCodesOf31BitsAndLosesOfLongerOnesWhatItAlwaysLost)
{
    // Of 11 rare bytes, as they were always made; the code of the most frequent one is a 1.
    const std::uint64_t firstUnits[][5] = {
        {0x4000000040000000, 0x0100000020000000, 0x0002000000100000, 0x0000000000008000, 0xffffe00000002000},
        {0xffffffff80000000, 0xfffffffe00000002, 0x0100000004000000, 0x0000000000800000, 0xffffffffff800000}};
    for (const unsigned values : {32U, 33U})
    {
        const std::string in = tHuffmanInputs::fibonacci(values);
        const std::string rare("\0\1\x1f\0\5\4\3\2\1\0\1", 11), record = rare + in.substr(in.size() - 100'000);
        tSegmentPass pass({in});
        pass.add(record).finish();
        EXPECT_EQ(std::memcmp(pass.stored.data(), firstUnits[values - 32], 40), 0);
        EXPECT_TRUE(pass.stored.substr(40, 12'496) == std::string(12'496, '\xFF'));
        EXPECT_EQ(counted({in}).isRestorable(), values == 32);
        engineDecoder.setHead(pass.head.data());
        EXPECT_EQ(pass.decoded(0, engineDecoder) == record, values == 32);
    }
}

TEST_F(tHuffmanCodecTest, printsWhatItDidAndStoresAFileOfOneValueAsAHeadAlone)
{
    tSegmentPass({"aab", "", "ccccc"}).add("aab").add("").add("ccccc").finish();  // c 1 bit, a and b 2: 11 of 64
    EXPECT_EQ(printed(), "==> Huffman PreRead Segments 3 Compression Ratio 0.172\r\n"
                         "==> Huffman Encoded Segments 3 Bits 11(64*0...11), LastValidBits 11\r\n");
    tHuffmanEncode::PrintBuffBinary("\x01\x80", 2);
    tHuffmanEncode::PrintBuffBinary("\x01", 0);
    EXPECT_EQ(printed(), "10000000 00000001 \r\n");
    write(src, std::string(1000, 'x'));  // of one value: a head alone
    EXPECT_TRUE(files.Encode(src.c_str(), packed.c_str()));
    EXPECT_EQ(printed(), "==> Huffman PreRead Segments 0 Compression Ratio 0.000\r\n");
    EXPECT_EQ(contentsOf(packed), plain::fileHead({{'x', 1000}}, 0));
    EXPECT_TRUE(fileDecoder.Decode(packed.c_str(), out.c_str()));
    EXPECT_TRUE(std::filesystem::exists(out) && contentsOf(out).empty());
}

TEST_F(tHuffmanCodecTest, finishesWithOneByteMoreThanWholeBytesNeedAndCountsEmptySegments)
{
    tSegmentPass pass({"ab"});
    pass.add("abbabba").add("").add("a");
    EXPECT_EQ(pass.places[1], std::make_pair(std::size_t{7}, std::size_t{0}));
    EXPECT_EQ(pass.places[2], std::make_pair(std::size_t{7}, std::size_t{1}));
    EXPECT_EQ(pass.finish(), 2U);
    EXPECT_EQ(tSegmentPass({"ab"}).add(std::string(64, 'a')).finish(), 0U);
}

TEST_F(tHuffmanCodecTest, stopsAtAByteThatWasNeverCounted)
{
    tHuffmanEncode encoder(eSegmentMode);
    encoder.PreReadSrcFileSegment("ab");
    EXPECT_THROW(encoder.GetHuffmanHead(), std::out_of_range);  // no codes yet
    tSegmentPass pass({"ab"});
    const std::string record = std::string(70, 'b') + "c" + std::string(20, 'a');
    EXPECT_THAT([&] { pass.add(record); }, testing::ThrowsMessage<std::out_of_range>("map::at"));
    EXPECT_EQ(pass.add("").places[0].first, 6U);  // behind 70 codes of one bit
}

TEST_F(tHuffmanCodecTest, refusesWhatItsModeAndStateDoNotAllow)
{
    tHuffmanEncode none, segments(eSegmentMode);
    const tEncodedSegment nothing{};
    EXPECT_FALSE(none.PreReadSrcFileSegment("a") || files.PreReadSrcFileSegment("a") || segments.PreReadFinish());
    EXPECT_EQ(segments.GetHuffmanHead(), "");
    EXPECT_EQ(segments.EncodeSrcFileSegment(twoBytes, 1), nothing);
    EXPECT_EQ(segments.SegmentEncodeFinish(), nothing);
    EXPECT_FALSE(segments.Encode("/dev/null", "/dev/null"));
    EXPECT_EQ(segments.EncodeByteArray(twoBytes, 1, nullptr, 0), tEncodedResult());
    segments.PreReadSrcFileSegment("aab");
    EXPECT_EQ(segments.GetPreReadSize(), 3U);
    segments.SetEncodeMode(eSegmentMode);
    EXPECT_EQ(segments.GetPreReadSize(), 0U);
    EXPECT_FALSE(segments.PreReadFinish());
    EXPECT_EQ(segmentDecoder.DecodeSrcFileSegment(twoBytes, 1, 0, 0), "");
    EXPECT_EQ(segmentDecoder.DecodeByteArray("\0\xDE\xC0\xE0", 4), "");
}

TEST_F(tHuffmanCodecTest, usesTheCallersArrayOnlyWhereAllFits)
{
    const std::string in = std::string(65536, 'x') + 'y', array = plain::byteArray(in);
    EXPECT_EQ(array.substr(7, 3), std::string("x\0\0", 3));  // a count of 65536 wraps
    EXPECT_EQ(encodedArray(arrays, in, array.size()), std::pair(array, false));
    EXPECT_EQ(encodedArray(arrays, in, array.size() - 1), std::pair(array, true));
}

TEST_F(tHuffmanCodecTest, sharesAByteArrayEncoderBetweenThreads)
{
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 4; ++seed)
        threads.emplace_back([this, seed] {
            tHuffmanInputs inputs(seed);
            for (int i = 0; i < 100; ++i)
            {
                const std::string in = "x" + inputs.next(500);
                EXPECT_EQ(encodedArray(arrays, in).first, plain::byteArray(in));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(tHuffmanCodecTest, takesTheFirstBitOfASingleByteFromItsBottomAndKeepsItsTablesWhereAHeadIsRefused)
{
    tFileHead head = headOf(plain::fileHead({{'a', 1}, {'b', 1}}, 0));  // a 1, b 0
    EXPECT_FALSE(segmentDecoder.SetHuffmanHead(head));
    head.alphaFreqs[0].alpha = 'A';
    EXPECT_FALSE(segmentDecoder.SetHuffmanHead(head));  // of another file: its codes are taken
    head.head = storage::cDataFileHead;
    head.alphaFreqs[0].alpha = 'x';
    EXPECT_FALSE(segmentDecoder.SetHuffmanHead(head));
    EXPECT_EQ(segmentDecoder.DecodeSrcFileSegment(twoBytes, 1, 3, 0), "AAbAAbbb");
    EXPECT_EQ(segmentDecoder.DecodeSrcFileSegment(twoBytes, 2, 3, 2), "AAbbbAb");
    EXPECT_EQ(segmentDecoder.DecodeSrcFileSegment(twoBytes, 2, 8, 200), "AbAbbbbb");
    ASSERT_FALSE(engineDecoder.setHead(&head));
    EXPECT_EQ(engineDecoder.decode(twoBytes, 3, 2, twoBytes, 2), 0U);  // no codes
    head.head = storage::cHuffmanFileHead;
    ASSERT_TRUE(engineDecoder.setHead(&head));
    EXPECT_EQ(engineDecoder.decode(twoBytes, 3, 2, twoBytes, 1), 0U);  // no room
}

TEST_F(tHuffmanCodecTest, decodesNothingFromAHeadAloneAndTakesNoValidBitsAtItsWord)
{
    const std::string array = plain::byteArray("abracadabra");  // 5 values, 22 bytes of head
    for (std::size_t len = 0; len <= 22; ++len)
        EXPECT_EQ(decodedArray(array.substr(0, len)), "");
    std::string last = array;
    last[6] = 0;
    EXPECT_EQ(decodedArray(last), plain::decode(plain::unpack(array.substr(22, array.size() - 23)),
                                                plain::treeOf(plain::freqsOf("abracadabra"))));
}

TEST_F(tHuffmanCodecTest, refusesFilesThatAreNone)
{
    const auto encodes = [&](const std::string& to) { return files.Encode(src.c_str(), to.c_str()); };
    const auto decodes = [&](const std::string& to) { return fileDecoder.Decode(src.c_str(), to.c_str()); };
    EXPECT_FALSE(encodes(out) || decodes(out));  // no file
    write(src, "");
    EXPECT_FALSE(encodes(out) || decodes(out));
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_FALSE(files.Encode(folder.string().c_str(), out.c_str()));
    const std::string whole = plain::file("ab");
    for (const std::string& in : {whole.substr(0, 1302), '\1' + whole, plain::fileHead({}, 0)})
    {
        write(src, in);
        EXPECT_FALSE(decodes(out));
    }
    write(src, whole);
    for (const std::string& to : {folder.file("gone/file"), src})
        EXPECT_FALSE(encodes(to) || decodes(to)) << to;
    EXPECT_EQ(contentsOf(src), whole);
}
