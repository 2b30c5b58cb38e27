#include <gtest/gtest.h>

#include "KestovaStorage/datafile.h"
#include "support/recording.h"
#include "support/tempdir.h"

using storage::tDataFile;

namespace
{
constexpr std::uint64_t cTime = 1'715'934'600'250;
constexpr std::uint64_t cIndexEnd = 2048 + 3 * 21, cFileEnd = 10'000'021;

// A file of three segments, "spoke", four bytes and "depth 12.5 m", which tests damage before they look at it.
class tDataFileReaderTest : public testing::Test
{
protected:
    void SetUp() override { restore(); }
    void restore()
    {
        ::unlink(path.c_str());
        writePieces(KESTOVA_TEST_DATA "/plain_three_segments.txt", path);
    }
    // "count+damaged" and the payloads that can be read; "-" for a file that does not open.
    std::string seen()
    {
        tDataFile file;
        std::string error, bytes;
        if (!file.open(path, &error))
            return error.rfind(path + ": ", 0) == 0 ? "-" : "an error without a name: " + error;
        std::string text = std::to_string(file.recordCount()) + "+" + std::to_string(file.damagedCount());
        for (std::size_t i = 0; i < file.recordCount(); ++i)
            text += file.read(i, bytes) ? " " + bytes.substr(0, 5) : " ?";
        return text;
    }

    tTempDir dir;
    const std::string path = dir.file("0000_golden.data");
    const std::string first = "spoke", second{"\x00\x01\x02\xff", 4}, third = "depth";
    const std::string whole = "3+0 " + first + " " + second + " " + third;
};
}  // namespace

TEST_F(tDataFileReaderTest, readsTheGoldenFile)
{
    tDataFile file;
    ASSERT_TRUE(file.open(path));
    EXPECT_EQ(file.kind(), storage::cDataFileHead);
    EXPECT_FALSE(file.isCompressed());
    EXPECT_STREQ(storage::fileFormName(file.kind()), "plain");
    EXPECT_STREQ(storage::fileFormName(storage::tFileHeadSymbol{0x12345678}), "unknown");
    EXPECT_TRUE(file.finished());
    EXPECT_EQ(file.size(), cFileEnd);
    EXPECT_EQ(file.payloadBytes(), 21u);
    ASSERT_EQ(file.recordCount(), 3u);
    EXPECT_EQ(file.record(2).timeMs, cTime + 1);
    EXPECT_EQ(file.record(2).pos, 10'000'009u);
    EXPECT_EQ(file.record(2).len, 12u);
    std::string bytes = "left over";
    EXPECT_TRUE(file.read(2, bytes));
    EXPECT_EQ(bytes, "depth 12.5 m");
    EXPECT_FALSE(file.read(3, bytes));
    EXPECT_EQ(seen(), whole);
}

TEST_F(tDataFileReaderTest, takesFromACutFileWhatIsStillWhole)
{
    const struct
    {
        std::uint64_t size;
        std::string seen;
    } cases[] = {{0, "-"},
                 {3, "-"},
                 {4, "0+0"},
                 {2000, "0+0"},
                 {2003, "0+3"},  // says three records and holds none
                 {2048, "0+3"},
                 {2048 + 20, "0+3"},
                 {cIndexEnd - 1, "0+3"},
                 {cIndexEnd, "0+3"},
                 {10'000'004, "0+3"},
                 {10'000'005, "1+2 " + first},
                 {10'000'009, "2+1 " + first + " " + second},
                 {cFileEnd - 1, "2+1 " + first + " " + second},
                 {cFileEnd, whole}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.size);
        restore();
        ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(c.size)), 0);
        EXPECT_EQ(seen(), c.seen);
    }
}

TEST_F(tDataFileReaderTest, believesNothingThatCannotBe)
{
    const std::uint64_t record2 = 2048 + 21, most = UINT64_MAX, limit = 1ull << 48;
    const std::string withoutSecond = "2+1 " + first + " " + third;
    const struct
    {
        const char* what;
        std::uint64_t offset;
        std::string bytes, seen;
    } cases[] = {{"foreign magic", 0, "RIFF", "-"},
                 {"a Huffman file's records cannot be read yet", 0, cHuffmanMagic, "3+0 ? ? ?"},
                 {"fewer records than there are", 2000, indexHead(2), "2+0 " + first + " " + second},
                 {"more records, whose times are zero", 2000, indexHead(5), whole},
                 {"not finished", 2000, indexHead(0), whole},
                 {"a longest segment of 4 GiB", 2000, indexHead(3, 0xFFFFFFFF), whole},
                 {"time zero ends the index", record2, indexRecord(0, 10'000'005, 4), "1+0 " + first},
                 {"the last possible time", record2, indexRecord(limit - 1, 10'000'005, 4), whole},
                 {"an impossible time", record2, indexRecord(limit, 10'000'005, 4), withoutSecond},
                 {"the time of no end", record2, indexRecord(most, 10'000'005, 4), withoutSecond},
                 {"4 GiB long", record2, indexRecord(cTime, 10'000'005, 0xFFFFFFFF), withoutSecond},
                 {"beginning behind the file", record2, indexRecord(cTime, cFileEnd + 1, 0), withoutSecond},
                 {"empty at the end of the file", record2, indexRecord(cTime, cFileEnd, 0), "3+0 spoke  depth"},
                 {"one byte too long", record2, indexRecord(cTime, cFileEnd - 5, 6), withoutSecond},
                 {"a place that overflows", record2, indexRecord(cTime, most, 4), withoutSecond},
                 {"an end that overflows", record2, indexRecord(cTime, most - 2, 0xFFFFFFFF), withoutSecond},
                 {"overlapping another", record2, indexRecord(cTime, 10'000'001, 4), "3+0 spoke poke depth"}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.what);
        restore();
        putBytes(path, c.offset, c.bytes);
        EXPECT_EQ(seen(), c.seen);
    }
}

TEST_F(tDataFileReaderTest, readsNoFurtherThanTheIndexAreaHoweverManyRecordsAreSaid)
{
    putBytes(path, 2000, indexHead(0xFFFFFFFF));
    tDataFile file;
    ASSERT_TRUE(file.open(path));
    EXPECT_EQ(file.recordCount(), 3u);
    EXPECT_EQ(file.damagedCount(), 0xFFFFFFFFu - 476'091u);

    const std::string record = indexRecord(cTime, 0, 1);
    std::string index;
    for (int i = 0; i < 476'095; ++i)
        index += record;
    putBytes(path, 2048, index);
    for (const std::uint32_t said : {0u, 0xFFFFFFFFu, 476'092u})
    {
        putBytes(path, 2000, indexHead(said));
        ASSERT_TRUE(file.open(path));
        EXPECT_EQ(file.recordCount(), 476'091u) << said;
    }
}

TEST_F(tDataFileReaderTest, keepsEveryRecordOfALongUnfinishedIndexUpToTheTornOne)
{
    std::string index;
    for (std::uint64_t i = 0; i < 30'000; ++i)
        index += i % 3 == 1 ? indexRecord(cTime + i, cFileEnd, 1) : indexRecord(cTime + i, 10'000'000 + i % 5, 1);
    index += indexRecord(cTime, 0, 0);  // its writer died before the length
    index += indexRecord(cTime, 0, 1);
    putBytes(path, 2000, indexHead(0) + std::string(40, '\0') + index);
    tDataFile file;
    ASSERT_TRUE(file.open(path));
    EXPECT_FALSE(file.finished());
    EXPECT_EQ(file.damagedCount(), 10'000u);
    ASSERT_EQ(file.recordCount(), 20'000u);
    for (std::size_t i = 0; i < 20'000; ++i)
        ASSERT_EQ(file.record(i).timeMs, cTime + i / 2 * 3 + i % 2 * 2);
}
