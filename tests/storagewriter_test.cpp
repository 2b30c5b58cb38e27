#include "KestovaStorage/datastorageio.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <thread>

#include "support/gate.h"
#include "support/processentries.h"
#include "support/pwritehook.h"
#include "support/recordedsegments.h"
#include "support/tempdir.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;
using storage::tDataStorageIO;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace
{
constexpr unsigned long cMoment = 1715934600000;  // 2024-05-17 08:30:00 in UTC
constexpr unsigned int cPatience_ms = 20'000;
constexpr std::size_t cIndexCapacity = 476'091;

class tStorageWriterTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ::setenv("TZ", "UTC0", 1);
        ::tzset();
    }
    void SetUp() override
    {
        setReclaiming(false);
        io = std::make_unique<tDataStorageIO>(dir.string(), ".data");
    }
    void write(const std::string& bytes, unsigned long timestamp = 0) const
    {
        io->WriteData(bytes.data(), bytes.size(), timestamp);
    }
    // One-byte segments, quick to fill an index with.
    void writeBytes(std::size_t count, unsigned long timestamp = cMoment) const
    {
        for (std::size_t i = 0; i < count; ++i)
            io->WriteData("x", 1, timestamp);
    }
    bool idle() const { return io->WaitWriteIdle(cPatience_ms); }
    static bool isFinished(const std::string& path)
    {
        storage::tDataFile file;
        return file.open(path) && file.finished();
    }
    std::string inside(const std::string& path) const { return path.substr(dir.string().size() + 1); }
    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const std::string& path : dataFilesIn(dir.string()))
            names.push_back(inside(path));
        return names;
    }
    void start(unsigned long timestamp = cMoment) { ASSERT_TRUE(io->CreateNewWritingFile(timestamp, "", false)); }

    tTempDir dir;
    std::unique_ptr<tDataStorageIO> io;
};
}  // namespace

TEST_F(tStorageWriterTest, recordsFilesIntoAFolderOfTheObject)
{
    std::filesystem::create_directory(dir.file("Data_000002_2024.05.16"));
    EXPECT_FALSE(io->IsWriteEnable());
    ASSERT_TRUE(io->CreateNewWritingFile(cMoment, "radar", false));
    const std::string first = io->GetCurrentWriteDataFileName();
    EXPECT_EQ(inside(first), "Data_000003_2024.05.17/0000_2024-05-17_08-30-00_radar.data");
    EXPECT_TRUE(io->IsWriteEnable());
    write("one", 1);
    write("two", 2);
    ASSERT_TRUE(idle());
    const tSegments expected{{1, "one"}, {2, "two"}};
    EXPECT_EQ(segmentsOf(first), expected);  // while it is being written
    EXPECT_FALSE(isFinished(first));
    ASSERT_TRUE(io->CreateNewWritingFile(cMoment + 86'400'000, "", true));
    EXPECT_EQ(inside(io->GetCurrentWriteDataFileName()), "Data_000003_2024.05.17/0001_2024-05-18_08-30-00.data");
    EXPECT_TRUE(isFinished(first));
    EXPECT_EQ(segmentsOf(first), expected);
    io->FinishWrite();
    io->FinishWrite();
    EXPECT_FALSE(io->IsWriteEnable());
    EXPECT_EQ(io->GetCurrentWriteDataFileName(), "");
    EXPECT_EQ(files().size(), 2u);
}

TEST_F(tStorageWriterTest, dropsWhatIsGivenWhileNoFileIsOpenAndStampsWhatHasNoTime)
{
    const tTimes_ms before = utils::time::tTimeParser::GetCurrentTime_ms();
    write("before");
    ASSERT_TRUE(io->CreateNewWritingFile("ignored beside a root/", "", false));
    write("in", 7);
    write("");
    write("now");
    ASSERT_TRUE(idle());
    io->FinishWrite();
    write("behind");
    ASSERT_TRUE(idle());
    start();
    const tSegments found = segmentsBelow(dir.string());
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0], (tSegment{7, "in"}));
    EXPECT_TRUE(found[1].time >= before && found[1].time <= utils::time::tTimeParser::GetCurrentTime_ms());
    EXPECT_THAT(*files().begin(), MatchesRegex("Data_000000_[0-9.]+/0000_[-0-9_]+[.]data"));
    EXPECT_EQ(io->GetSaveCnt(), 5u);
    EXPECT_EQ(io->GetWriteLostCnt(), 2u);
}

TEST_F(tStorageWriterTest, refusesWhatNoIndexRecordCanHold)
{
    start();
    testing::internal::CaptureStderr();
    io->WriteData("x", 1ul << 32, 1);  // refused before a byte is looked at
    io->WriteData("x", 1, 1ul << 48);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), MatchesRegex("WriteData: [^\n]+ refused\n"));
    io->WriteData("x", 1, (1ul << 48) - 1);
    ASSERT_TRUE(idle());
    EXPECT_EQ(segmentsBelow(dir.string()), (tSegments{{(1ul << 48) - 1, "x"}}));
    EXPECT_EQ(io->GetWriteLostCnt(), 2u);
}

TEST_F(tStorageWriterTest, queuesWithoutWaitingForTheDiskAndCountsWhatItRefuses)
{
    start();
    const std::string path = io->GetCurrentWriteDataFileName();
    std::atomic<bool> stuck{false}, free{false}, full{true};
    const tPwriteHook hook([&](int file, const void* data, std::size_t len, off_t pos) -> ssize_t {
        stuck = true;
        EXPECT_TRUE(waitUntil([&] { return free.load(); }, 20s));
        errno = ENOSPC;
        return full ? -1 : tPwriteHook::write(file, data, len, pos);
    });
    write("first", 1);
    ASSERT_TRUE(waitUntil([&] { return stuck.load(); }));
    writeBytes(999);
    EXPECT_FALSE(io->WaitWriteIdle(20));
    EXPECT_LE(io->GetWriteDataFifoSize(), 1u);  // as of the writer's last look
    free = true;
    ASSERT_TRUE(idle());
    EXPECT_EQ(io->GetWriteDataFifoSize(), 0u);
    EXPECT_EQ(io->GetWriteLostCnt(), 1000u);
    full = false;
    writeBytes(200);
    ASSERT_TRUE(idle());
    full = true;
    io->FinishWrite();
    EXPECT_EQ(io->GetWriteLostCnt(), 1000u);
    EXPECT_EQ(segmentsOf(path).size(), 200u);  // found although the index head could not be written
    EXPECT_FALSE(isFinished(path));
}

TEST_F(tStorageWriterTest, rollsOverBehindTheSegmentThatFillsTheIndex)
{
    ASSERT_TRUE(io->CreateNewWritingFile(cMoment, "x", false));
    const std::string folder = "Data_000000_2024.05.17/";
    // Looks while one file ends and the next begins.
    const tPwriteHook hook([&](int file, const void* data, std::size_t len, off_t pos) {
        EXPECT_TRUE(pos >= 2048 || io->GetCurrentWriteDataFileName().starts_with(dir.file(folder)));
        return tPwriteHook::write(file, data, len, pos);
    });
    writeBytes(cIndexCapacity - 1);
    writeBytes(1, cMoment + 60'000);  // its time names the next file
    writeBytes(cIndexCapacity, cMoment + 120'000);
    writeBytes(3);
    EXPECT_TRUE(idle());
    EXPECT_TRUE(io->IsWriteEnable());
    io->FinishWrite();
    for (const std::string& path : dataFilesIn(dir.string()))
        EXPECT_TRUE(isFinished(path));
    EXPECT_EQ(segmentsBelow(dir.string()).size(), 2 * cIndexCapacity + 3);
    EXPECT_EQ(segmentsOf(*dataFilesIn(dir.string()).rbegin()).size(), 3u);
    EXPECT_THAT(files(), testing::ElementsAre(folder + "0000_2024-05-17_08-30-00_x.data",
                                              folder + "0001_2024-05-17_08-31-00_x.data",
                                              folder + "0002_2024-05-17_08-32-00_x.data"));
    EXPECT_EQ(io->GetWriteLostCnt(), 0u);
}

TEST_F(tStorageWriterTest, stopsWhileItIsAboutToRollOver)
{
    start();
    writeBytes(cIndexCapacity - 1);
    ASSERT_TRUE(idle());
    std::atomic<bool> crossing{false};
    const tPwriteHook hook([&](int file, const void* data, std::size_t len, off_t pos) {
        // Holds the segment that fills the index back until the writer has been told to stop.
        const bool isLast = pos == off_t{10'000'000} + static_cast<off_t>(cIndexCapacity) - 1;
        if (isLast && !crossing.exchange(true))
        {
            const auto lost = io->GetWriteLostCnt();
            EXPECT_TRUE(waitUntil([&] { return (writeBytes(1), io->GetWriteLostCnt() > lost); }, 20s));
        }
        return tPwriteHook::write(file, data, len, pos);
    });
    writeBytes(100);
    ASSERT_TRUE(waitUntil([&] { return crossing.load(); }));
    io->FinishWrite();
    EXPECT_EQ(files().size(), 1u);
    EXPECT_EQ(segmentsBelow(dir.string()).size() + io->GetWriteLostCnt(), io->GetSaveCnt());
    EXPECT_EQ(segmentsBelow(dir.string()).size(), cIndexCapacity);
}

TEST_F(tStorageWriterTest, overwritesNoFile)
{
    start();
    write("kept", 5);
    ASSERT_TRUE(idle());
    const std::string first = io->GetCurrentWriteDataFileName();
    std::ofstream(std::filesystem::path(first).parent_path() / "zzz.data");  // numbers begin at 0 again behind it
    testing::internal::CaptureStderr();
    EXPECT_FALSE(io->CreateNewWritingFile(cMoment, "", false));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("newfile already exist!\r\n"));
    EXPECT_FALSE(io->IsWriteEnable());
    EXPECT_EQ(io->GetCurrentWriteDataFileName(), "");
    EXPECT_EQ(segmentsOf(first), (tSegments{{5, "kept"}}));
    start(cMoment + 1000);  // a roll-over into a file that exists
    testing::internal::CaptureStderr();
    writeBytes(cIndexCapacity + 2);
    EXPECT_TRUE(idle());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("newfile already exist!\r\n"));
    EXPECT_FALSE(io->IsWriteEnable());
    EXPECT_EQ(io->GetCurrentWriteDataFileName(), "");
    EXPECT_EQ(io->GetWriteLostCnt(), 2u);
    EXPECT_TRUE(io->CreateNewWritingFile(cMoment + 2000, "", false));
}

TEST_F(tStorageWriterTest, recordsWhereTheCallerSaysWithoutARoot)
{
    tDataStorageIO rootless("", ".data");
    ASSERT_TRUE(rootless.CreateNewWritingFile(dir.file("a/b/"), "mine", false));
    EXPECT_THAT(inside(rootless.GetCurrentWriteDataFileName()), MatchesRegex("a/b/0000_[-0-9_]+_mine[.]data"));
    std::ofstream(dir.file("file"));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(rootless.CreateNewWritingFile(dir.file("file/"), "", false));
    EXPECT_FALSE(rootless.CreateNewWritingFile("", "", false));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("newfile path mkdir failed!\r\n"), said.rfind("newfile path mkdir failed!\r\n"));
    EXPECT_FALSE(rootless.IsWriteEnable());
}

TEST_F(tStorageWriterTest, fallsBackToAFolderBesideTheWorkingFolder)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    std::ofstream("file");
    tDataStorageIO lost("file/below", ".data");
    EXPECT_TRUE(lost.CreateNewWritingFile(cMoment, "", false));
    const std::string path = lost.GetCurrentWriteDataFileName();
    EXPECT_EQ(path, "./RadarDataStorageData_000000_2024.05.17/0000_2024-05-17_08-30-00.data");
    EXPECT_TRUE(std::filesystem::exists(path));
    std::filesystem::current_path(before);
}

TEST_F(tStorageWriterTest, accountsForEverySegmentWhateverThreadsDo)
{
    std::atomic<bool> stop{false};
    const auto repeat = [&](auto work) {
        return std::thread([&stop, work] {
            for (std::uint64_t i = 0; !stop; ++i)
                work(i);
        });
    };
    std::vector<std::thread> threads;
    for (std::uint64_t producer = 0; producer < 2; ++producer)
        threads.push_back(repeat([this, producer](std::uint64_t i) {
            write(numberedSegment(2 * i + producer, 8 + i % 20'000 * (i % 50 == 0)), 1 + i);
            if (i % 1000 == 0)
                io->WaitWriteIdle(5);
        }));
    threads.push_back(repeat([this](std::uint64_t i) { io->CreateNewWritingFile(cMoment + 1000 * i, "", false); }));
    threads.push_back(repeat([this](std::uint64_t) { io->FinishWrite(); }));
    threads.push_back(repeat([this](std::uint64_t) { (void)io->GetCurrentWriteDataFileName().size(); }));
    EXPECT_TRUE(waitUntil([&] { return files().size() >= 100 && io->GetSaveCnt() >= 20'000; }, 30s));
    stop = true;
    for (std::thread& thread : threads)
        thread.join();
    io->FinishWrite();
    std::set<std::uint64_t> numbers;
    const tSegments found = segmentsBelow(dir.string());
    for (const tSegment& segment : found)
    {
        const std::uint64_t number = numberOf(segment.bytes);
        ASSERT_EQ(segment.bytes, numberedSegment(number, segment.bytes.size()));
        EXPECT_TRUE(numbers.insert(number).second);
    }
    EXPECT_EQ(found.size() + io->GetWriteLostCnt(), io->GetSaveCnt());
}

TEST_F(tStorageWriterTest, endsWhileItIsWritingAndKeepsNothing)
{
    const auto cycle = [this](std::size_t segments) {
        start();
        for (std::size_t i = 0; i < segments; ++i)
            write(numberedSegment(1, 100 * (8 + segments)), 1);
        io = std::make_unique<tDataStorageIO>(dir.string(), ".data");
    };
    cycle(1);
    const auto descriptors = openDescriptors(), threads = runningThreads();
    for (std::size_t i = 0; i < 200; ++i)
        cycle(i);
    EXPECT_EQ(files().size(), 201u);
    for (const std::string& path : dataFilesIn(dir.string()))
        EXPECT_TRUE(isFinished(path));
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_LE(runningThreads(), threads);
}

TEST_F(tStorageWriterTest, goesOnInTheNextFileOnDemandWithoutALoss)
{
    constexpr std::uint64_t cSegments = 20'000;
    EXPECT_FALSE(io->StartNextFile());
    start();
    std::thread producer([&] {
        for (std::uint64_t i = 0; i < cSegments; ++i)
            write(numberedSegment(i, 64), cMoment + i);
    });
    do
    {
        EXPECT_TRUE(io->StartNextFile());
        std::this_thread::sleep_for(1ms);
    } while (io->GetWriteQueuedCnt() < cSegments);
    producer.join();
    ASSERT_TRUE(idle());
    const std::string last = io->GetCurrentWriteDataFileName();
    EXPECT_TRUE(io->StartNextFile());  // nothing is queued: at once
    EXPECT_TRUE(waitUntil([&] { return io->GetCurrentWriteDataFileName() != last; }));
    EXPECT_TRUE(waitUntil([&] { return isFinished(last); }));
    io->FinishWrite();
    EXPECT_EQ(io->GetWriteLostCnt(), 0u);
    const tSegments found = segmentsBelow(dir.string());
    ASSERT_EQ(found.size(), cSegments);
    for (std::uint64_t i = 0; i < cSegments; ++i)
        ASSERT_EQ(numberOf(found[i].bytes), i);
    EXPECT_GE(files().size(), 3u);
}

TEST_F(tStorageWriterTest, showsWhetherItAdvances)
{
    tGate gate;
    std::atomic<bool> held{true}, inside{false};
    const tPwriteHook hook([&](int file, const void* data, std::size_t len, off_t pos) {
        if (held && pos >= 10'000'000)
        {
            inside = true;
            gate.pass();
        }
        return tPwriteHook::write(file, data, len, pos);
    });
    start();
    write("one");
    ASSERT_TRUE(waitUntil([&] { return inside.load(); }));
    write("two");
    EXPECT_EQ(io->GetWriteQueuedCnt(), 2u);
    EXPECT_EQ(io->GetWriteDoneCnt(), 0u);
    held = false;
    gate.open();
    ASSERT_TRUE(idle());
    EXPECT_EQ(io->GetWriteDoneCnt(), 2u);
}
