#include <atomic>
#include <new>
#include <sys/mman.h>
#include <thread>

#include "support/doomedprocess.h"
#include "support/recordedsegments.h"
#include "support/tempdir.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;
using storage::tDataStorageIO;
using tCount = std::atomic<std::uint64_t>;

namespace
{
// Mostly messages of some hundred bytes, now and then a large one.
std::size_t lengthOf(std::uint64_t number)
{
    return 8 + number * 37 % 600 + (number % 50 == 7 ? 20'000 : 0) + (number % 999 == 3 ? 700'000 : 0);
}

// Without end, at full speed or a few at a time. `written`: how many segments the recorder has reported written.
void record(const std::string& folder, bool fullSpeed, tCount& written)
{
    setReclaiming(false);
    tDataStorageIO io(folder, ".data");
    io.CreateNewWritingFile(1715934600000, "", false);
    for (std::uint64_t i = 0;;)
    {
        const std::string bytes = numberedSegment(i, lengthOf(i));
        io.WriteData(bytes.data(), bytes.size(), 1 + i);
        if (++i % (fullSpeed ? 2000 : 3) == 0 && io.WaitWriteIdle(20'000))
            written = i;
    }
}

// A prefix of what was given, byte for byte, and all of what was reported written.
void checkFileBelow(const std::string& folder, std::uint64_t written)
{
    const std::set<std::string> files = dataFilesIn(folder);
    ASSERT_EQ(files.size(), 1u);
    storage::tDataFile file;
    EXPECT_TRUE(file.open(*files.begin()) && !file.finished());
    const tSegments found = segmentsOf(*files.begin());
    EXPECT_GE(found.size(), written);
    for (std::size_t i = 0; i < found.size(); ++i)
        ASSERT_TRUE(found[i] == (tSegment{1 + i, numberedSegment(i, lengthOf(i))})) << "segment " << i;
}
}  // namespace

// What a death within one write leaves is a matter of tDyingWriterTest.
TEST(tStorageCrashTest, leavesAllThatWasWrittenWheneverTheProcessIsKilled)
{
    void* const shared = ::mmap(nullptr, sizeof(tCount), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    tCount& written = *new (shared) tCount;
    for (int moment = 0; moment < 16; ++moment)
    {
        const tTempDir dir;
        written = 0;
        tDoomedProcess recorder([&] { record(dir.string(), moment % 2 == 0, written); });
        ASSERT_TRUE(waitUntil([&] { return written != 0; }, 20s));
        std::this_thread::sleep_for(moment * 631us);
        ASSERT_TRUE(recorder.kill());
        checkFileBelow(dir.string(), written);
    }
    ::munmap(shared, sizeof(tCount));
}
