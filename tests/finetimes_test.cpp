// Fine times: what a recorder leaves beside its data file, what is believed of them, and when they are played.
#include <array>
#include <bit>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "KestovaStorage/companions.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileoutput.h"
#include "KestovaStorage/datastorageio.h"
#include "support/filebytes.h"
#include "support/recordedsegments.h"
#include "support/recording.h"
#include "support/replaylog.h"
#include "support/tempdir.h"

using namespace storage;

namespace
{
constexpr std::uint64_t cStart_ms = 1715934600000;
constexpr std::uint64_t cPayload = 10'000'000;
constexpr std::size_t cRecords = 3000;  // of several blocks of 1024
constexpr std::size_t cCoarse = 7;      // a record whose time is known in ms alone

// Fine times by hand: of records from `firstMs` on.
void fineTimesByHand(const std::string& path, std::uint64_t firstMs, const std::vector<std::uint16_t>& times,
                     std::uint32_t version = 1)
{
    std::string bytes = "KestovaT" + littleEndian(version, 4) + littleEndian(0, 4) + "0123456789abcdef" +
                        littleEndian(firstMs, 8) + littleEndian(cPayload, 8) + std::string(16, '\0');
    for (const std::uint16_t time : times)
        bytes += littleEndian(time, 2);
    putBytes(path, 0, bytes);
}

std::vector<int> fineTimesOf(const std::string& path)
{
    tDataFile file;
    EXPECT_TRUE(file.open(path));
    std::vector<int> times;
    for (std::size_t i = 0; i < file.recordCount(); ++i)
        times.push_back(file.fineTime(i));
    return times;
}

class tFineTimesTest : public testing::Test
{
protected:
    void SetUp() override { setReclaiming(false); }
    static tSegments segments()
    {
        tSegments segments;
        for (std::size_t i = 0; i < cRecords; ++i)
            segments.push_back({cStart_ms + i / 4, std::string(20 + i % 9, static_cast<char>('a' + i % 5))});
        return segments;
    }
    static std::vector<int> expected()
    {
        std::vector<int> times;
        for (std::size_t i = 0; i < cRecords; ++i)
            times.push_back(i == cCoarse ? -1 : static_cast<int>(i % 4 * 250));
        return times;
    }
    // Records segments() and returns the path of the file, which is finished, and compressed or not.
    std::string record(bool compress, bool fine = true) const
    {
        tDataStorageIO io("", ".data");
        io.SetFineTimes(fine);
        EXPECT_TRUE(io.CreateNewWritingFile(dir.file(""), "", compress));
        const std::string path = io.GetCurrentWriteDataFileName();
        std::uint64_t us = cStart_ms * 1000;
        for (const tSegment& segment : segments())
        {
            if (us == cStart_ms * 1000 + 250 * cCoarse)
                io.WriteData(segment.bytes.data(), segment.bytes.size(), segment.time);
            else
                io.WriteDataFine(segment.bytes.data(), segment.bytes.size(), us);
            us += 250;
        }
        EXPECT_TRUE(io.WaitWriteIdle(20'000));
        return path;
    }

    tTempDir dir;
};
}  // namespace

TEST_F(tFineTimesTest, goWithPlainAndCompressedFilesAndWithNoneByDefault)
{
    const std::string plain = record(false), compressed = record(true);
    const std::string taken = compressed.substr(0, compressed.size() - 5) + ".tar.data";
    for (const std::string& path : {plain, taken})
    {
        EXPECT_EQ(segmentsOf(path), segments()) << path;
        EXPECT_EQ(fineTimesOf(path), expected()) << path;
    }
    EXPECT_EQ(std::filesystem::file_size(fineTimesName(plain)), 64 + 2 * cRecords);
    EXPECT_FALSE(std::filesystem::exists(fineTimesName(record(false, false))));
}

TEST_F(tFineTimesTest, areUsedOnlyWhereTheyAreTheDataFilesOwn)
{
    const std::vector<std::uint16_t> given{0, 999, 1000, 0xFFFF};
    const std::vector<int> all{0, 999, -1, -1}, none(4, -1), two{0, 999, -1, -1};
    const std::string fine = dir.file("x.fine"), real = dir.file("real");
    const auto flip = [&](const std::string& path, std::uint64_t place) {
        putBytes(path, place, std::string(1, static_cast<char>(bytesOf(path, place, 1)[0] ^ 0x10)));
    };
    const std::tuple<const char*, std::function<void()>, tFineTimesState, std::vector<int>> cases[] = {
        {"whole", [] {}, eFineTimesOurs, all},
        {"cut behind a record", [&] { std::filesystem::resize_file(fine, 64 + 2 * 2 + 1); }, eFineTimesOurs, two},
        {"cut in the head", [&] { std::filesystem::resize_file(fine, 63); }, eFineTimesDamaged, none},
        {"a bit of its first time", [&] { flip(fine, 33); }, eFineTimesOurs, all},
        {"a bit of the index's first time", [&] { flip(dir.file("x.data"), 2049); }, eFineTimesOurs, all},
        {"a bit of each", [&] { (flip(fine, 33), flip(fine, 41)); }, eFineTimesForeign, none},
        {"of the future", [&] { fineTimesByHand(fine, cStart_ms, given, 2); }, eFineTimesForeign, none},
        {"other contents", [&] { flip(fine, 0); }, eFineTimesDamaged, none},
        {"gone", [&] { std::filesystem::remove(fine); }, eFineTimesNone, none},
        {"a link", [&] { (std::filesystem::rename(fine, real), std::filesystem::create_symlink(real, fine)); },
         eFineTimesDamaged, none},
        {"a pipe", [&] { (std::filesystem::remove(fine), ::mkfifo(fine.c_str(), 0600)); }, eFineTimesDamaged, none}};
    for (const auto& [name, spoil, state, times] : cases)
    {
        SCOPED_TRACE(name);
        std::filesystem::remove(fine);
        recordByHand(dir.file("x.data"), {{cStart_ms, "a"}, {cStart_ms, "b"}, {cStart_ms, "c"}, {cStart_ms, "d"}});
        fineTimesByHand(fine, cStart_ms, given);
        spoil();
        tDataFile file;
        ASSERT_TRUE(file.open(dir.file("x.data")));
        EXPECT_EQ(file.fineTimes(), state);
        tFileId id{};
        EXPECT_EQ(file.fineTimesId(id), state == eFineTimesOurs);
        EXPECT_EQ(
            std::memcmp(id.bytes, state == eFineTimesOurs ? "0123456789abcdef" : std::string(16, '\0').data(), 16), 0);
        EXPECT_EQ(fineTimesOf(dir.file("x.data")), times);
    }
}

TEST_F(tFineTimesTest, stayWithTheirRecordsWhereOthersAreDamaged)
{
    tSegments segments;
    std::vector<std::uint16_t> times;
    for (std::uint16_t i = 0; i < 20; ++i)
    {
        segments.push_back({cStart_ms + i, "segment"});
        times.push_back(i);
    }
    recordByHand(dir.file("x.data"), segments);
    fineTimesByHand(dir.file("x.fine"), cStart_ms, times);
    for (const std::uint64_t damaged : {0u, 5u, 6u, 12u})
        putBytes(dir.file("x.data"), 2048 + 21 * damaged + 8 + 4, "\xFF");  // its position is behind the file
    EXPECT_EQ(fineTimesOf(dir.file("x.data")), std::vector<int>(16, -1)) << "two bits, or more, make it foreign";
    putBytes(dir.file("x.data"), 2048 + 8 + 4, std::string(1, '\0'));
    EXPECT_EQ(fineTimesOf(dir.file("x.data")),
              (std::vector<int>{0, 1, 2, 3, 4, 7, 8, 9, 10, 11, 13, 14, 15, 16, 17, 18, 19}));
}

namespace
{
// Keeps of each segment its microseconds and when it was due, in us from the first one.
struct tDueLog : tReplayLog
{
    void UpdateReplayData(std::uint64_t time, double progress, const char* data, unsigned int len,
                          std::string file) override
    {
        const std::int64_t due = io.GetReplayDueTime();
        EXPECT_GE(std::chrono::steady_clock::now().time_since_epoch().count(), due);
        m_first = m_first != 0 ? m_first : due;
        dues.push_back({io.GetReplayFineTime(), (due - m_first + 500) / 1000});
        tReplayLog::UpdateReplayData(time, progress, data, len, std::move(file));
    }
    explicit tDueLog(tDataStorageIO& player) : io(player) {}

    tDataStorageIO& io;
    std::vector<std::pair<int, std::int64_t>> dues;

private:
    std::int64_t m_first = 0;
};

using tDues = std::vector<std::pair<int, std::int64_t>>;
}  // namespace

TEST_F(tFineTimesTest, areWhenSegmentsAreDueInTheOrderOfTheRecords)
{
    const std::tuple<tSegments, std::vector<std::uint16_t>, double, std::string, tDues> cases[] = {
        {{{1000, "a"}, {1000, "b"}, {1003, "c"}}, {100, 900, 2}, 1, "a b c", {{100, 0}, {900, 800}, {2, 2902}}},
        {{{1000, "a"}, {1000, "b"}, {1003, "c"}}, {100, 900, 2}, 2, "a b c", {{100, 0}, {900, 400}, {2, 1451}}},
        // Out of order within its millisecond: due at once, and after its neighbour.
        {{{1000, "a"}, {1001, "b"}, {1001, "c"}}, {0, 500, 200}, 1, "a b c", {{0, 0}, {500, 1500}, {200, 1200}}},
        // A file out of order: the times go with their records.
        {{{1002, "c"}, {1000, "a"}, {1001, "b"}}, {30, 10, 20}, 1, "a b c", {{10, 0}, {20, 1010}, {30, 2020}}}};
    for (const auto& [segments, times, speed, order, dues] : cases)
    {
        SCOPED_TRACE(order);
        recordByHand(dir.file("x.data"), segments);
        fineTimesByHand(dir.file("x.fine"), segments.front().time, times);
        tDataStorageIO io("", ".data");
        tDueLog log(io);
        log.react = [&, exact = speed](const std::string& word) {
            if (word == "0")
                io.SetSpeed(exact);
        };
        io.OpenReadDataFileorFolder(dir.file("x.data"), &log);
        ASSERT_TRUE(log.waitFor("4"));
        io.CloseReadingFile();
        const std::string& heard = log.text();
        EXPECT_NE(heard.find(" 1 " + order + " 4"), std::string::npos) << heard;
        EXPECT_EQ(log.dues, dues);
    }
}

TEST_F(tFineTimesTest, leaveSegmentsWithoutThemToTheirTicks)
{
    recordByHand(dir.file("x.data"), {{1000, "a"}, {1000, "b"}, {1004, "c"}});
    tDataStorageIO io("", ".data");
    tDueLog log(io);
    io.OpenReadDataFileorFolder(dir.file("x.data"), &log);
    ASSERT_TRUE(log.waitFor("4"));
    io.CloseReadingFile();
    EXPECT_EQ(log.dues, (tDues{{-1, 0}, {-1, 0}, {-1, 3000}}));  // the first tick comes at once
}

TEST_F(tFineTimesTest, goIntoNewFilesWithTheirRecords)
{
    const std::string plain = record(false), taken = dir.file("taken.data"), again = dir.file("again.data");
    tDataFile from;
    ASSERT_TRUE(from.open(plain));
    tDataFileOutput copy, byHand;
    ASSERT_TRUE(copy.create(taken, true)) << copy.error();
    EXPECT_EQ(copy.copy(from, 0, cRecords, 0), cRecords) << copy.error();
    ASSERT_TRUE(copy.finish()) << copy.error();
    ASSERT_TRUE(byHand.create(again, true)) << byHand.error();
    for (std::size_t i = 0; i < cRecords; ++i)
    {
        const tSegment segment = segments()[i];
        ASSERT_TRUE(byHand.append(segment.time, expected()[i], segment.bytes.data(),
                                  static_cast<std::uint32_t>(segment.bytes.size())));
    }
    ASSERT_TRUE(byHand.finish()) << byHand.error();
    for (const std::string& path : {taken, again})
    {
        EXPECT_TRUE(contentsOf(path) == contentsOf(plain)) << path;
        EXPECT_EQ(fineTimesOf(path), expected()) << path;
    }
}
