#include <cstdlib>
#include <fcntl.h>

#include "common/descriptor.h"
#include "support/ownnamespace.h"
#include "support/recordedsegments.h"
#include "support/tempdir.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;
using storage::tDataStorageIO;

namespace
{
constexpr unsigned long cMoment = 1715934600000;

// A file that takes `mebibytes` of its disk.
void fill(const std::string& path, int mebibytes)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    const tDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT, 0600));
    EXPECT_EQ(::posix_fallocate(file.get(), 0, off_t{mebibytes} << 20), 0);
}

class tSmallDiskTest : public testing::Test
{
protected:
    static void SetUpTestSuite() { tTinyDisk::enter(); }
    void SetUp() override
    {
        if (!tTinyDisk::enter().empty())
            GTEST_SKIP() << tTinyDisk::enter();
    }
};

class tStorageFullDiskTest : public tSmallDiskTest
{
protected:
    void SetUp() override
    {
        tSmallDiskTest::SetUp();
        if (IsSkipped())
            return;
        setReclaiming(false);
        ASSERT_TRUE(disk.mounted());
        fill(ballast, 8);
        io = std::make_unique<tDataStorageIO>(dir.file("root"), ".data");
        ASSERT_TRUE(io->CreateNewWritingFile(cMoment, "", false));
        path = io->GetCurrentWriteDataFileName();
    }
    void write(std::size_t len)
    {
        const std::string bytes = numberedSegment(given, len);
        io->WriteData(bytes.data(), bytes.size(), 1 + given++);
    }
    // Mixed lengths, many of them queued at once, until `count` of them are lost.
    void writeUntilLost(std::uint64_t count)
    {
        while (io->GetWriteLostCnt() < count && given < 100'000)
        {
            for (int i = 0; i < 200; ++i)
                write(8 + given * 7919 % 3000 + (given % 20 == 0 ? 40'000 : 0));
            ASSERT_TRUE(io->WaitWriteIdle(20'000));
        }
    }
    // All that is in the file is as it was given and in order; the rest is known to be lost.
    void checkFile() const
    {
        const tSegments found = segmentsOf(path);
        EXPECT_EQ(found.size() + io->GetWriteLostCnt(), given);
        std::uint64_t next = 0;
        for (const tSegment& segment : found)
        {
            const std::uint64_t number = numberOf(segment.bytes);
            ASSERT_GE(number, next);
            ASSERT_TRUE(segment == (tSegment{1 + number, numberedSegment(number, segment.bytes.size())})) << number;
            next = number + 1;
        }
    }

    tTempDir dir;
    tTinyDisk disk{dir.string(), 32};
    const std::string ballast = dir.file("ballast");
    std::unique_ptr<tDataStorageIO> io;
    std::string path;
    std::uint64_t given = 0;
};
}  // namespace

TEST_F(tStorageFullDiskTest, recordsAgainAsSoonAsThereIsRoomAndFinishesWhereThereIsNone)
{
    testing::internal::CaptureStderr();
    writeUntilLost(300);
    checkFile();
    const std::uint64_t lost = io->GetWriteLostCnt();
    std::filesystem::remove(ballast);
    for (int i = 0; i < 500; ++i)
        write(1000);
    ASSERT_TRUE(io->WaitWriteIdle(20'000));
    EXPECT_EQ(io->GetWriteLostCnt(), lost);
    checkFile();
    writeUntilLost(lost + 1);
    io->FinishWrite();
    checkFile();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), path + ": No space left on device\n");
    storage::tDataFile file;
    EXPECT_TRUE(file.open(path) && file.finished());
    testing::internal::CaptureStderr();
    EXPECT_TRUE(io->CreateNewWritingFile(cMoment + 1000, "", false));
    write(100);
    EXPECT_TRUE(io->WaitWriteIdle(20'000));
    io.reset();
    testing::internal::GetCapturedStderr();
}

using tReclaimedDiskTest = tSmallDiskTest;

// The process's own reclaiming, which looks at one root every 3 s.
TEST_F(tReclaimedDiskTest, losesItsOldestFilesUntilAGibibyteIsFree)
{
    tTempDir dir, other;
    const tTinyDisk low(dir.string(), 1100), roomy(other.string(), 1100);
    ASSERT_TRUE(low.mounted() && roomy.mounted());
    const auto old = [&](int i) { return dir.file("Data_000000_x/000" + std::to_string(i) + "_x.data"); };
    const auto exists = [&](int i) { return std::filesystem::exists(old(i)); };
    for (int i = 0; i < 4; ++i)
        fill(old(i), 30);
    fill(other.file("Data_000000_x/0000_x.data"), 30);
    setReclaiming(false);
    tDataStorageIO io(dir.string(), ".data");
    const tDataStorageIO beside(other.string(), ".data");
    ASSERT_TRUE(io.CreateNewWritingFile(cMoment, "", false));
    EXPECT_FALSE(waitUntil([&] { return !exists(0); }, 7s));
    setReclaiming(true);
    EXPECT_TRUE(waitUntil([&] { return !exists(0) && !exists(1); }, 15s));
    EXPECT_FALSE(waitUntil([&] { return !exists(2); }, 1s));
    fill(dir.file("ballast"), 100);
    EXPECT_TRUE(waitUntil(
        [&] { return !exists(2) && !exists(3) && !std::filesystem::exists(dir.file("Data_000000_x")); }, 15s));
    io.WriteData("kept", 4, 1);
    EXPECT_TRUE(io.WaitWriteIdle(20'000));
    EXPECT_EQ(segmentsOf(io.GetCurrentWriteDataFileName()), (tSegments{{1, "kept"}}));
    EXPECT_TRUE(std::filesystem::exists(other.file("Data_000000_x/0000_x.data")));
}

// In the other process the small disk covers the temporary folder, so that nothing is left to remove.
TEST_F(tReclaimedDiskTest, letsTheProcessEndWhileItWorks)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            const std::string folder = std::filesystem::temp_directory_path().string();
            static const tTinyDisk s_disk(folder, 1100);
            fill(folder + "/ballast", 200);
            for (int i = 0; i < 3000; ++i)
                fill(folder + "/root/Data_000000/" + std::to_string(10'000 + i) + ".data", 0);
            setReclaiming(true);
            static const tDataStorageIO s_io(folder + "/root", ".data");
            const bool works = waitUntil([&] { return dataFilesIn(folder + "/root").size() < 2990; }, 20s);
            std::exit(works && !dataFilesIn(folder + "/root").empty() ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
}
