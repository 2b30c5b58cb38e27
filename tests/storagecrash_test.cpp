#include <csignal>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>

#include "common/descriptor.h"
#include "support/recordedsegments.h"
#include "support/tempdir.h"

using namespace std::chrono_literals;
using storage::tDataStorageIO;

namespace
{
// Mostly messages of some hundred bytes, now and then a large one.
std::size_t lengthOf(std::uint64_t number)
{
    return 8 + number * 37 % 600 + (number % 50 == 7 ? 20'000 : 0) + (number % 999 == 3 ? 700'000 : 0);
}

// Tells through the pipe how many segments the recorder has said to be in the file.
[[noreturn]] void recordUntilKilled(const std::string& folder, bool fullSpeed, int pipe)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    setReclaiming(false);
    tDataStorageIO io(folder, ".data");
    io.CreateNewWritingFile(1715934600000, "", false);
    for (std::uint64_t i = 0;; ++i)
    {
        const std::string bytes = numberedSegment(i, lengthOf(i));
        io.WriteData(bytes.data(), bytes.size(), 1 + i);
        const std::uint64_t given = i + 1;
        if (fullSpeed ? given % 2000 != 0 : given % 3 != 0)
            continue;
        if (!io.WaitWriteIdle(20'000) || ::write(pipe, &given, sizeof given) != sizeof given)
            ::_exit(1);
        if (!fullSpeed)
            std::this_thread::sleep_for(300us);
    }
}

// A process that records, from its birth to its autopsy.
class tVictim
{
public:
    explicit tVictim(bool fullSpeed)
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::pipe(ends), 0);
        m_acknowledged = tDescriptor(ends[0]);
        const tDescriptor write(ends[1]);
        m_pid = ::fork();
        if (m_pid == 0)
            recordUntilKilled(m_dir.string(), fullSpeed, write.get());
    }
    bool isRecording() const
    {
        pollfd waiting{m_acknowledged.get(), POLLIN, 0};
        return ::poll(&waiting, 1, 20'000) == 1 && (waiting.revents & POLLIN) != 0;
    }
    void kill() const
    {
        int status = 0;
        EXPECT_EQ(::kill(m_pid, SIGKILL), 0);
        EXPECT_EQ(::waitpid(m_pid, &status, 0), m_pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    }
    // A prefix of what was given, byte for byte, and all of what was acknowledged.
    void lookAtTheFile() const
    {
        std::uint64_t acknowledged = 0;
        while (::read(m_acknowledged.get(), &acknowledged, sizeof acknowledged) == sizeof acknowledged)
        {}
        const std::set<std::string> files = dataFilesIn(m_dir.string());
        ASSERT_EQ(files.size(), 1u);
        storage::tDataFile file;
        ASSERT_TRUE(file.open(*files.begin()));
        EXPECT_FALSE(file.finished());
        const tSegments found = segmentsOf(*files.begin());
        EXPECT_GT(acknowledged, 0u);
        EXPECT_GE(found.size(), acknowledged);
        for (std::size_t i = 0; i < found.size(); ++i)
            ASSERT_TRUE(found[i] == (tSegment{1 + i, numberedSegment(i, lengthOf(i))})) << "segment " << i;
    }

private:
    tTempDir m_dir;
    pid_t m_pid = -1;
    tDescriptor m_acknowledged;
};
}  // namespace

TEST(tStorageCrashTest, leavesAllThatWasWrittenWheneverTheProcessIsKilled)
{
    constexpr int cAtOnce = 4;
    for (int moment = 0; moment < 40; moment += cAtOnce)
    {
        std::vector<std::unique_ptr<tVictim>> victims;
        for (int i = 0; i < cAtOnce; ++i)
            victims.push_back(std::make_unique<tVictim>(i % 2 == 0));
        for (const auto& victim : victims)
            ASSERT_TRUE(victim->isRecording());
        for (int i = 0; i < cAtOnce; ++i)
        {
            std::this_thread::sleep_for((moment + i) * 331us);  // the moments of death differ, whatever they meet
            victims[static_cast<std::size_t>(i)]->kill();
        }
        for (const auto& victim : victims)
            victim->lookAtTheFile();
    }
}
