// The process's own reclaiming, on a disk that is low.
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>

#include "common/descriptor.h"
#include "support/ownnamespace.h"
#include "support/recordedsegments.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;
using storage::tDataStorageIO;

namespace
{
// A file that takes `mebibytes` of its disk.
void fill(const std::string& path, int mebibytes)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    const tDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT, 0600));
    EXPECT_EQ(::posix_fallocate(file.get(), 0, off_t{mebibytes} << 20), 0);
}
}  // namespace

// In the other process the small disk covers the temporary folder, so that nothing is left to remove.
TEST(tReclaimedDiskTest, deletesWhileItIsEnabledAndLetsTheProcessEndMeanwhile)
{
    if (!tTinyDisk::enter().empty())
        GTEST_SKIP() << tTinyDisk::enter();
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            const std::string folder = std::filesystem::temp_directory_path().string();
            static const tTinyDisk s_disk(folder, 1100);
            fill(folder + "/ballast", 200);
            for (int i = 0; i < 3000; ++i)
                fill(folder + "/root/Data_000000/" + std::to_string(10'000 + i) + ".data", 0);
            const auto left = [&] { return dataFilesIn(folder + "/root").size(); };
            setReclaiming(false);
            static const tDataStorageIO s_io(folder + "/root", ".data");
            const bool early = waitUntil([&] { return left() < 3000; }, 7s);
            setReclaiming(true);
            const bool works = waitUntil([&] { return left() < 2990; }, 20s);
            std::exit(!early && works && left() != 0 ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
}
