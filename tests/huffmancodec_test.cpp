// Encoder and decoder against the plain ones, on many inputs; and what they do at their edges.
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KestovaStorage/huffmandecode.h"
#include "KestovaStorage/huffmanencode.h"
#include "KestovaStorage/huffmantree.h"
#include "tests/support/huffmaninputs.h"
#include "tests/support/plainhuffman.h"
#include "tests/support/tempdir.h"

namespace
{
using namespace huffman;

// Takes what is printed to standard output.
class tPrinted
{
public:
    tPrinted() { testing::internal::CaptureStdout(); }
    ~tPrinted() { text(); }
    const std::string& text()
    {
        if (!m_taken)
            m_text = testing::internal::GetCapturedStdout();
        m_taken = true;
        return m_text;
    }

private:
    std::string m_text;
    bool m_taken = false;
};

std::string bytesOf(const tEncodedSegment& segment)
{
    return {segment.first.first, segment.first.second};
}

tFileHead headOf(const std::string& bytes)
{
    tFileHead head{};
    std::memcpy(&head, bytes.data(), std::min(bytes.size(), sizeof head));
    return head;
}

void write(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string read(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct tFiles
{
    const tTempDir folder;
    const std::string src = folder.file("src"), packed = folder.file("packed"), out = folder.file("out");
};

// An array encoded without a buffer of the caller's.
std::string encodedArray(tHuffmanEncode& encoder, const std::string& bytes)
{
    const tEncodedResult result =
        encoder.EncodeByteArray(bytes.data(), static_cast<uint32_t>(bytes.size()), nullptr, 0);
    const std::unique_ptr<char[]> owned(result.second ? result.first.first : nullptr);
    return {result.first.first, result.first.second};
}

std::string decodedArray(const std::string& array)
{
    tHuffmanDecode decoder(eByteArrayMode);
    const std::vector<char> exact(array.begin(), array.end());  // so that reading on is noticed
    return decoder.DecodeByteArray(exact.data(), static_cast<uint32_t>(exact.size()));
}

// A pass over records: what is stored, and where each record's bits are.
class tSegmentPass
{
public:
    explicit tSegmentPass(const std::vector<std::string>& records)
    {
        tPrinted printed;
        tHuffmanEncode encoder(eSegmentMode);
        for (const std::string& record : records)
            EXPECT_TRUE(encoder.PreReadSrcFileSegment(record));
        EXPECT_TRUE(encoder.PreReadFinish());
        m_head = encoder.GetHuffmanHead();
        for (const std::string& record : records)
            add(encoder, record);
        m_finish = bytesOf(encoder.SegmentEncodeFinish());
        m_stored += m_finish;
        m_printed = printed.text();
    }
    std::string m_head, m_stored, m_finish, m_printed;
    std::vector<std::pair<std::size_t, std::size_t>> m_places;  // first bit and number of bits of each record

private:
    void add(tHuffmanEncode& encoder, std::string record)
    {
        const bool own = m_places.size() % 2 == 0;
        const auto len = static_cast<uint32_t>(record.size());
        std::vector<char> buffer(encoder.SegmentBufferSize(len));
        const tEncodedSegment segment =
            own ? encoder.EncodeSrcFileSegment(record.data(), len)
                : encoder.EncodeSrcFileSegment(std::as_const(record).data(), len, buffer.data(), buffer.size());
        EXPECT_LT(segment.second.first, 64U);
        m_places.emplace_back(m_stored.size() * 8 + segment.second.first, segment.second.second);
        m_stored += bytesOf(segment);
    }
};

std::string joined(const std::vector<std::string>& records)
{
    std::string all;
    for (const std::string& record : records)
        all += record;
    return all;
}
}  // namespace

TEST(tHuffmanCodecTest, makesByteArraysLikeThePlainOne)
{
    tHuffmanInputs inputs(1);
    tHuffmanEncode encoder(eByteArrayMode);
    for (int i = 0; i < 3000; ++i)
    {
        const std::string bytes = inputs.next(i % 100 == 0 ? 60'000 : 1 << i % 12);
        const std::string array = encodedArray(encoder, bytes);
        ASSERT_EQ(array, bytes.empty() ? "" : plain::byteArray(bytes)) << "input " << i;
        const bool codes = bytes.size() > 1 && bytes.find_first_not_of(bytes[0]) != std::string::npos;
        ASSERT_EQ(decodedArray(array), codes ? bytes : "") << "input " << i;
    }
}

TEST(tHuffmanCodecTest, makesOneStreamOfSegmentsAndFindsEachAgain)
{
    tHuffmanInputs inputs(2);
    for (int i = 0; i < 300; ++i)
    {
        std::vector<std::string> records;
        for (std::size_t n = 2 + inputs.below(20); n > 0; --n)
            records.push_back(inputs.next(1 << inputs.below(11)));
        records.emplace_back("\x01\x02");
        const plain::tFreqs freqs = plain::freqsOf(joined(records));
        const std::string bits = plain::encode(joined(records), plain::codesOf(freqs));
        const tSegmentPass pass(records);
        ASSERT_EQ(pass.m_head, plain::fileHead(freqs, bits.size()));
        ASSERT_EQ(plain::unpack(pass.m_stored).substr(0, bits.size()), bits);
        tHuffmanDecode decoder(eSegmentMode);
        ASSERT_FALSE(decoder.SetHuffmanHead(headOf(pass.m_head)));
        for (std::size_t r = 0; r < records.size(); ++r)
        {
            const auto [first, number] = pass.m_places[r];
            std::string out(decoder.DecodedSizeLimit(number), '\0');
            out.resize(decoder.DecodeSegment(pass.m_stored.data(), first, number, out.data(), out.size()));
            ASSERT_EQ(out, records[r]);
            const std::size_t last = first + number;
            std::string stored = pass.m_stored.substr(first / 8, (last + 7) / 8 - first / 8);
            if (stored.size() == 1)
                continue;
            ASSERT_EQ(decoder.DecodeSrcFileSegment(stored.data(), static_cast<uint32_t>(stored.size()),
                                                   static_cast<uint8_t>(first % 8), static_cast<uint8_t>(last % 8)),
                      records[r]);
        }
    }
}

TEST(tHuffmanCodecTest, makesFilesLikeThePlainOne)
{
    const auto [folder, src, packed, out] = tFiles();
    tHuffmanInputs inputs(3);
    tHuffmanEncode encoder(eFileMode);
    tHuffmanDecode decoder(eFileMode);
    for (int i = 0; i < 60; ++i)
    {
        const std::string bytes = "ab" + inputs.next(i % 10 == 0 ? 900'000 : 3000);
        write(src, bytes);
        const tPrinted quiet;
        ASSERT_TRUE(encoder.Encode(src.c_str(), packed.c_str()));
        ASSERT_EQ(read(packed), plain::file(bytes)) << "input " << i;
        ASSERT_TRUE(decoder.Decode(packed.c_str(), out.c_str()));
        const std::string payload = plain::unpack(read(packed).substr(1303));  // to the end of the last unit
        ASSERT_EQ(read(out), plain::decode(payload, plain::treeOf(plain::freqsOf(bytes)))) << "input " << i;
        ASSERT_EQ(read(out).substr(0, bytes.size()), bytes);
    }
}

TEST(tHuffmanCodecTest, givesBackCodesOf31BitsAndMarksLongerOnesAsLost)
{
    const tPrinted quiet;
    for (const unsigned values : {32U, 33U})
    {
        const std::string bytes = tHuffmanInputs::fibonacci(values);
        tHuffmanEncode encoder(eSegmentMode);
        encoder.PreReadSrcFileSegment(bytes);
        ASSERT_TRUE(encoder.PreReadFinish());
        EXPECT_EQ(encoder.IsRestorable(), values == 32);
        const std::string head = encoder.GetHuffmanHead();
        std::string record("\0\1\2", 3);
        record += bytes.substr(bytes.size() - 100'000);
        const tEncodedSegment segment = encoder.EncodeSrcFileSegment(record.data(), 100'003);
        EXPECT_EQ(segment.second.second, 3 * (values - 1) - 1 + 100'000);
        tHuffmanDecode decoder(eSegmentMode);
        decoder.SetHuffmanHead(headOf(head));
        const std::string decoded = decoder.DecodeSrcFileSegment(segment.first.first, segment.first.second, 0, 0);
        EXPECT_EQ(decoded == record.substr(0, decoded.size()), values == 32);
    }
}

TEST(tHuffmanCodecTest, losesOfLongCodesWhatItAlwaysLost)
{
    const tPrinted quiet;
    const std::string bytes = tHuffmanInputs::fibonacci(33);
    tHuffmanEncodeMap codes;
    tHuffmanTree::HuffmanCodeMap2EncodeMap(plain::codesOf(plain::freqsOf(bytes)), codes);
    std::string record("\0\1\x20\x1f\0\5\4\3\2\1\0\1", 12), expected;
    uint64_t unit = 0, index = 0;
    for (const char byte : record)
    {
        const auto [code, length] = codes.at(static_cast<uint8_t>(byte));
        const uint64_t before = index;
        unit |= code << before;
        index += length;
        if (index < 64)
            continue;
        expected += plain::number(unit, 8);
        index -= 64;
        unit = code >> (64 - before);
    }
    tHuffmanEncode encoder(eSegmentMode);
    encoder.PreReadSrcFileSegment(bytes);
    encoder.PreReadFinish();
    encoder.GetHuffmanHead();
    EXPECT_EQ(bytesOf(encoder.EncodeSrcFileSegment(record.data(), 12)), expected);
    EXPECT_EQ(bytesOf(encoder.SegmentEncodeFinish()), plain::number(unit, index / 8 + 1));
}

TEST(tHuffmanCodecTest, printsWhatItDid)
{
    const tSegmentPass pass({"aab", "", "ccccc"});  // c 1 bit, a and b 2: 11 of 64
    EXPECT_EQ(pass.m_printed, "==> Huffman PreRead Segments 3 Compression Ratio 0.172\r\n"
                              "==> Huffman Encoded Segments 3 Bits 11(64*0...11), LastValidBits 11\r\n");
    tPrinted printed;
    tHuffmanEncode::PrintBuffBinary("\x01\x80", 2);
    tHuffmanEncode::PrintBuffBinary("\x01", 0);
    EXPECT_EQ(printed.text(), "10000000 00000001 \r\n");
}

TEST(tHuffmanCodecTest, finishesWithOneByteMoreThanWholeBytesNeedAndCountsEmptySegments)
{
    EXPECT_EQ(tSegmentPass({"abababab"}).m_finish.size(), 2U);
    EXPECT_EQ(tSegmentPass({std::string(32, 'a') + std::string(32, 'b')}).m_finish.size(), 0U);
    const tSegmentPass pass({"abbabba", "", "a"});
    EXPECT_EQ(pass.m_finish.size(), 2U);
    EXPECT_EQ(pass.m_places[1], std::make_pair(std::size_t{7}, std::size_t{0}));
    EXPECT_EQ(pass.m_places[2], std::make_pair(std::size_t{7}, std::size_t{1}));
}

TEST(tHuffmanCodecTest, stopsAtAByteThatWasNeverCounted)
{
    const tPrinted quiet;
    tHuffmanEncode encoder(eSegmentMode);
    encoder.PreReadSrcFileSegment("ab");
    EXPECT_THROW(encoder.GetHuffmanHead(), std::out_of_range);  // no codes yet
    encoder.PreReadFinish();
    encoder.GetHuffmanHead();
    std::string record = std::string(70, 'b') + "c" + std::string(20, 'a');
    try
    {
        encoder.EncodeSrcFileSegment(record.data(), 91);
        FAIL();
    }
    catch (const std::out_of_range& error)
    {
        EXPECT_STREQ(error.what(), "map::at");
    }
    EXPECT_EQ(encoder.EncodeSrcFileSegment(record.data(), 0).second.first, 6U);  // behind 70 codes of one bit
}

TEST(tHuffmanCodecTest, refusesWhatItsModeAndStateDoNotAllow)
{
    const tPrinted quiet;
    tHuffmanEncode none, files(eFileMode), segments(eSegmentMode);
    char byte = 'a';
    const tEncodedSegment nothing{};
    EXPECT_FALSE(none.PreReadSrcFileSegment("a") || files.PreReadSrcFileSegment("a") || segments.PreReadFinish());
    EXPECT_EQ(segments.GetHuffmanHead(), "");
    EXPECT_EQ(segments.EncodeSrcFileSegment(&byte, 1), nothing);
    EXPECT_EQ(segments.SegmentEncodeFinish(), nothing);
    EXPECT_FALSE(segments.Encode("/dev/null", "/dev/null"));
    EXPECT_EQ(segments.EncodeByteArray(&byte, 1, nullptr, 0), tEncodedResult());
    segments.PreReadSrcFileSegment("aab");
    EXPECT_EQ(segments.GetPreReadSize(), 3U);
    segments.SetEncodeMode(eSegmentMode);
    EXPECT_EQ(segments.GetPreReadSize(), 0U);
    EXPECT_FALSE(segments.PreReadFinish());
    tHuffmanDecode decoder(eSegmentMode);
    EXPECT_EQ(decoder.DecodeSrcFileSegment(&byte, 1, 0, 0), "");
    EXPECT_EQ(decoder.DecodeByteArray("\0\xDE\xC0\xE0", 4), "");
}

TEST(tHuffmanCodecTest, storesAByteArrayAsDocumented)
{
    tHuffmanEncode encoder(eByteArrayMode);
    EXPECT_EQ(encodedArray(encoder, "abracadabra"), std::string("\x00\xde\xc0\xe0\x05\x00\x07"
                                                                "a\5\0b\2\0c\1\0d\1\0r\2\0"
                                                                "\x89\xae\x44",
                                                                25));
}

TEST(tHuffmanCodecTest, usesTheCallersArrayOnlyWhereAllFits)
{
    tHuffmanEncode encoder(eByteArrayMode);
    const std::string bytes(65536, 'x'), array = plain::byteArray(bytes + 'y');
    EXPECT_EQ(array.substr(7, 3), std::string("x\0\0", 3));  // a count of 65536 wraps
    for (const uint32_t missing : {0U, 1U})
    {
        const auto size = static_cast<uint32_t>(array.size()) - missing;
        const std::unique_ptr<char[]> dst(new char[size]);
        const tEncodedResult result = encoder.EncodeByteArray((bytes + 'y').data(), 65537, dst.get(), size);
        const std::unique_ptr<char[]> owned(result.second ? result.first.first : nullptr);
        EXPECT_EQ(result.second, missing == 1);
        EXPECT_EQ(std::string(result.first.first, result.first.second), array);
    }
}

TEST(tHuffmanCodecTest, sharesAByteArrayEncoderBetweenThreads)
{
    tHuffmanEncode encoder(eByteArrayMode);
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 4; ++seed)
        threads.emplace_back([&encoder, seed] {
            tHuffmanInputs inputs(seed);
            for (int i = 0; i < 100; ++i)
            {
                const std::string bytes = "x" + inputs.next(500);
                EXPECT_EQ(encodedArray(encoder, bytes), plain::byteArray(bytes));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST(tHuffmanCodecTest, takesTheFirstBitOfASingleByteFromItsBottom)
{
    tHuffmanDecode decoder(eSegmentMode);
    decoder.SetHuffmanHead(headOf(plain::fileHead({{'a', 1}, {'b', 1}}, 0)));  // a 1, b 0
    char bytes[] = {'\x1b', '\x05'};
    EXPECT_EQ(decoder.DecodeSrcFileSegment(bytes, 1, 3, 0), "aabaabbb");
    EXPECT_EQ(decoder.DecodeSrcFileSegment(bytes, 2, 3, 2), "aabbbab");
    EXPECT_EQ(decoder.DecodeSrcFileSegment(bytes, 2, 8, 200), "ababbbbb");
    EXPECT_EQ(decoder.DecodeSegment(bytes, 3, 2, bytes, 1), 0U);  // no room
}

TEST(tHuffmanCodecTest, keepsItsTablesWhereAHeadIsRefused)
{
    tHuffmanDecode decoder(eSegmentMode);
    EXPECT_FALSE(decoder.SetHuffmanHead(headOf(plain::fileHead({{'a', 1}, {'b', 1}}, 0))));
    tFileHead other = headOf(plain::fileHead({{'c', 1}, {'d', 1}}, 0));
    char byte = 1;
    other.head = storage::cDataFileHead;
    EXPECT_FALSE(decoder.SetHuffmanHead(other));
    EXPECT_EQ(decoder.DecodeSrcFileSegment(&byte, 1, 0, 1), "a");
    other.head = storage::cHuffmanFileHead;
    EXPECT_FALSE(decoder.SetHuffmanHead(other));
    EXPECT_EQ(decoder.DecodeSrcFileSegment(&byte, 1, 0, 1), "c");
}

TEST(tHuffmanCodecTest, survivesHostileArrays)
{
    const std::string array = plain::byteArray("abracadabra");  // 5 values, 22 bytes of head
    for (std::size_t len = 0; len <= 22; ++len)
        EXPECT_EQ(decodedArray(array.substr(0, len)), "");
    for (std::size_t at = 0; at < array.size(); ++at)
        for (int bit = 0; bit < 8; ++bit)
        {
            std::string damaged = array;
            damaged[at] = static_cast<char>(damaged[at] ^ 1 << bit);
            EXPECT_LE(decodedArray(damaged).size(), array.size() * 8);
        }
    std::string last = array;
    last[6] = 0;
    EXPECT_EQ(decodedArray(last), plain::decode(plain::unpack(array.substr(22, array.size() - 23)),
                                                plain::treeOf(plain::freqsOf("abracadabra"))));
}

TEST(tHuffmanCodecTest, refusesFilesThatAreNone)
{
    const tTempDir folder;
    const std::string src = folder.file("src"), dst = folder.file("dst"), gone = folder.file("gone/file");
    tHuffmanEncode encoder(eFileMode);
    tHuffmanDecode decoder(eFileMode);
    const auto refused = [&] {
        return !encoder.Encode(src.c_str(), dst.c_str()) && !decoder.Decode(src.c_str(), dst.c_str());
    };
    EXPECT_TRUE(refused());  // no file
    write(src, "");
    EXPECT_TRUE(refused());
    EXPECT_FALSE(std::filesystem::exists(dst));
    EXPECT_FALSE(encoder.Encode(folder.string().c_str(), dst.c_str()));
    const std::string whole = plain::file("ab");
    for (const std::string& bytes : {whole.substr(0, 1302), '\1' + whole, plain::fileHead({}, 0)})
    {
        write(src, bytes);
        EXPECT_FALSE(decoder.Decode(src.c_str(), dst.c_str()));
    }
    write(src, whole);
    const tPrinted quiet;
    EXPECT_FALSE(encoder.Encode(src.c_str(), gone.c_str()) || decoder.Decode(src.c_str(), gone.c_str()));
    EXPECT_FALSE(encoder.Encode(src.c_str(), src.c_str()) || decoder.Decode(src.c_str(), src.c_str()));
    EXPECT_EQ(read(src), whole);
}

TEST(tHuffmanCodecTest, storesAFileOfOneValueAsAHeadAlone)
{
    const tFiles files;
    write(files.src, std::string(1000, 'x'));
    tPrinted printed;
    EXPECT_TRUE(tHuffmanEncode(eFileMode).Encode(files.src.c_str(), files.packed.c_str()));
    EXPECT_EQ(printed.text(), "==> Huffman PreRead Segments 0 Compression Ratio 0.000\r\n");
    EXPECT_EQ(read(files.packed), plain::fileHead({{'x', 1000}}, 0));
    EXPECT_TRUE(tHuffmanDecode(eFileMode).Decode(files.packed.c_str(), files.out.c_str()));
    EXPECT_TRUE(std::filesystem::exists(files.out));
    EXPECT_EQ(read(files.out), "");
}

TEST(tHuffmanCodecTest, readsAndWritesTheGoldenFile)
{
    const tFiles files;
    const tPrinted quiet;
    const std::string golden = KESTOVA_TEST_DATA "/huffman_sentences", text = read(golden + ".txt");
    ASSERT_TRUE(tHuffmanEncode(eFileMode).Encode((golden + ".txt").c_str(), files.packed.c_str()));
    EXPECT_EQ(read(files.packed), read(golden + ".huf"));
    ASSERT_TRUE(tHuffmanDecode(eFileMode).Decode((golden + ".huf").c_str(), files.out.c_str()));
    EXPECT_EQ(read(files.out).substr(0, text.size()), text);
}
