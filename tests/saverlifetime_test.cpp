// What recorders leave behind in the process: nothing.
#include <filesystem>
#include <iterator>

#include "support/saverfixture.h"

using namespace Kestova;

namespace
{
std::ptrdiff_t entriesOf(const char* folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}
std::ptrdiff_t openDescriptors()
{
    return entriesOf("/proc/self/fd");
}
std::ptrdiff_t runningThreads()
{
    return entriesOf("/proc/self/task");
}
}  // namespace

class tSaverLifetimeTest : public tSaverFixture
{};

TEST_F(tSaverLifetimeTest, leavesNothingBehindOfTwoHundredRecorders)
{
    makeSaver().reset();  // starts what a process has once
    const auto descriptors = openDescriptors();
    const auto threads = runningThreads();
    for (int i = 0; i < 200; ++i)
        makeSaver();
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(waitUntil([&] { return runningThreads() <= threads; })) << runningThreads();
}

TEST_F(tSaverLifetimeTest, leavesNothingBehindOfTwentyConnections)
{
    auto saver = connectedSaver();
    saver->disconnect();
    const auto descriptors = openDescriptors();
    const auto threads = runningThreads();
    for (int i = 0; i < 20; ++i)
    {
        ASSERT_TRUE(saver->connect("A1:2", 1, false) && socketsOpen(*saver));
        ASSERT_TRUE(saver->disconnect());
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(waitUntil([&] { return runningThreads() <= threads; })) << runningThreads();
    EXPECT_EQ(dataFilesBelow(dir.string()).size(), 21u);
}
