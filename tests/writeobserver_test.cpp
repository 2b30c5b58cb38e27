// Who follows what is written: the sequence of calls, and that a call comes behind what it reports.
#include <atomic>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/writeobserver.h"
#include "support/collector.h"
#include "support/filebytes.h"
#include "support/gate.h"
#include "support/pwritehook.h"
#include "support/recordedsegments.h"
#include "support/tempdir.h"
#include "support/waituntil.h"

using namespace storage;
using namespace std::chrono_literals;

namespace
{
constexpr std::size_t cIndexCapacity = 476'091;
constexpr std::size_t cFewRecords = 20'000;  // as are quickly looked at again and again

// Keeps the calls as words: "S0" file 0 started, "W17" so many segments written in one or more calls, "L2" lost, "F0"
// finished, "C0" compressed.
class tWriteLog : public iWriteObserver
{
public:
    void FileStarted(const char* path, const tFileId&) override
    {
        m_paths.push_back(path);
        m_written = m_inFile = 0;
        word("S", m_paths.size() - 1);
    }
    void SegmentsWritten(const tWrittenSegment* segments, std::size_t count) override
    {
        if (during)
            during();
        for (std::size_t i = 0; i < count; ++i)
            m_segments.push_back({segments[i].timeMs, {segments[i].bytes, segments[i].len}});
        m_fine.push_back(segments[0].us);
        m_last = segments[count - 1];
        m_written += count;
        m_inFile += count;
        if (m_inFile > cFewRecords)
            return;
        tDataFile file;
        EXPECT_TRUE(file.open(m_paths.back()));
        EXPECT_GE(file.recordCount(), m_inFile) << "reported before it was in the file";
        EXPECT_EQ(file.record(m_inFile - 1).pos, m_last.pos);
    }
    void SegmentsLost(std::uint64_t count) override { word("L", count); }
    void FileFinished(const char* path) override
    {
        tDataFile file;
        EXPECT_TRUE(file.open(path) && file.finished());
        EXPECT_EQ(path, m_paths.back());
        word("F", m_paths.size() - 1);
    }
    void FileCompressed(const char* path, const char* compressed) override
    {
        EXPECT_FALSE(std::filesystem::exists(path));
        EXPECT_TRUE(std::filesystem::exists(compressed));
        word("C", static_cast<std::size_t>(std::find(m_paths.begin(), m_paths.end(), path) - m_paths.begin()));
    }

    std::function<void()> during;
    std::string text() const
    {
        std::string all;
        for (const std::string& one : m_words.all())
            all += (all.empty() ? "" : " ") + one;
        return all;
    }
    tSegments segments() const { return m_segments; }
    std::uint16_t fine(std::size_t call) const { return m_fine.at(call); }

private:
    void word(const char* what, std::size_t number)
    {
        if (*what != 'S' && m_written != 0)
            m_words.add("W" + std::to_string(std::exchange(m_written, 0)));
        m_words.add(what + std::to_string(number));
    }

    tCollector<std::string> m_words;
    std::vector<std::string> m_paths;
    tSegments m_segments;
    std::vector<std::uint16_t> m_fine;
    std::size_t m_written = 0, m_inFile = 0;  // since the last word, and of the file
    tWrittenSegment m_last{};
};

class tWriteObserverTest : public testing::Test
{
protected:
    void SetUp() override
    {
        setReclaiming(false);
        io->SetWriteObserver(&log);
    }
    void start(bool compress = false) const
    {
        ASSERT_TRUE(io->CreateNewWritingFile(dir.file(""), std::to_string(dataFilesIn(dir.string()).size()), compress));
    }
    void writeBytes(std::size_t count) const
    {
        for (std::size_t i = 0; i < count; ++i)
            io->WriteData(i % 2 == 0 ? "x" : "y", 1, 1000);
    }

    tTempDir dir;
    tWriteLog log;
    std::unique_ptr<tDataStorageIO> io = std::make_unique<tDataStorageIO>("", ".data");
};
}  // namespace

TEST_F(tWriteObserverTest, hearsEverySegmentBehindItsFileAndBeforeTheNextOne)
{
    start();
    writeBytes(cIndexCapacity + 3);
    ASSERT_TRUE(io->WaitWriteIdle(60'000));
    start(true);
    writeBytes(10);
    ASSERT_TRUE(io->WaitWriteIdle(60'000));
    io->FinishWrite();
    EXPECT_TRUE(log.text().starts_with("S0 W476091 F0 S1 W3 F1 S2 W10 F2")) << log.text();  // before it returned
    io.reset();
    EXPECT_EQ(log.text(), "S0 W476091 F0 S1 W3 F1 S2 W10 F2 C2");
    EXPECT_EQ(log.segments().size(), cIndexCapacity + 13);
}

TEST_F(tWriteObserverTest, getsBytesAndTimesAsTheyAreInTheFile)
{
    start();
    const std::string path = io->GetCurrentWriteDataFileName();
    tSegments written;
    for (std::size_t i = 0; i < 3000; ++i)
        written.push_back({7000 + i, numberedSegment(i, i % 100 == 0 ? 40'000 : 300)});
    for (const tSegment& segment : written)
        io->WriteDataFine(segment.bytes.data(), segment.bytes.size(), segment.time * 1000 + 123);
    ASSERT_TRUE(io->WaitWriteIdle(60'000));
    io->FinishWrite();
    EXPECT_TRUE(log.segments() == written);
    EXPECT_TRUE(segmentsOf(path) == written);
    EXPECT_EQ(log.fine(0), 123) << "known although no fine times are kept";
}

TEST_F(tWriteObserverTest, hearsWhatCouldNotBeWritten)
{
    start();
    {
        const tPwriteHook hook(tPwriteHook::noRoom(10'000'000 + 5, UINT64_MAX));
        testing::internal::CaptureStderr();
        writeBytes(8);
        ASSERT_TRUE(io->WaitWriteIdle(60'000));
        testing::internal::GetCapturedStderr();
    }
    writeBytes(2);
    ASSERT_TRUE(io->WaitWriteIdle(60'000));
    io->FinishWrite();
    std::uint64_t lost = 0, written = 0;
    std::istringstream words(log.text());
    for (std::string word; words >> word;)
    {
        lost += word[0] == 'L' ? std::stoull(word.substr(1)) : 0;
        written += word[0] == 'W' ? std::stoull(word.substr(1)) : 0;
    }
    EXPECT_EQ(lost, 3u);
    EXPECT_EQ(lost, io->GetWriteLostCnt());
    EXPECT_EQ(written, 7u);
}

TEST_F(tWriteObserverTest, holdsNeitherTheProducerNorTheWriterUpUntilItIsFarBehind)
{
    tGate gate;
    log.during = [&] { gate.pass(); };
    start();
    const std::string bytes(60'000, 'b');
    for (int i = 0; i < 50; ++i)  // 3 MB
        io->WriteData(bytes.data(), bytes.size(), 1000);
    EXPECT_TRUE(io->WaitWriteIdle(60'000));
    EXPECT_TRUE(log.segments().empty());
    for (int i = 0; i < 600; ++i)  // 36 MB
        io->WriteData(bytes.data(), bytes.size(), 1000);
    EXPECT_FALSE(io->WaitWriteIdle(200));
    EXPECT_LT(segmentsBelow(dir.string()).size(), 400u) << "the writer ran away from its observer";
    gate.open();
    EXPECT_TRUE(io->WaitWriteIdle(60'000));
    io->FinishWrite();
    EXPECT_EQ(log.segments().size(), 650u);
}

TEST_F(tWriteObserverTest, hasHeardAllOfAFileThatIsFinishedWithAQueue)
{
    tGate gate;
    log.during = [&] { gate.pass(); };
    start();
    const std::string bytes(60'000, 'b');
    for (int i = 0; i < 1000; ++i)
        io->WriteData(bytes.data(), bytes.size(), 1000);
    std::thread opener([&] {
        std::this_thread::sleep_for(20ms);
        gate.open();
    });
    io->FinishWrite();
    opener.join();
    EXPECT_TRUE(log.text().ends_with(" F0")) << log.text();
    EXPECT_EQ(log.segments().size(), segmentsBelow(dir.string()).size());
    EXPECT_EQ(log.segments().size() + io->GetWriteLostCnt(), 1000u);
}

TEST_F(tWriteObserverTest, hasHeardOfNothingThatAKilledProcessDidNotWrite)
{
    struct tToPipe : tWriteLog
    {
        explicit tToPipe(int to) : pipe(to) {}
        void SegmentsWritten(const tWrittenSegment*, std::size_t count) override
        {
            const auto segments = static_cast<std::uint32_t>(count);
            (void)!::write(pipe, &segments, sizeof segments);
        }
        int pipe;
    };
    for (int round = 1; round <= 3; ++round)
    {
        const tTempDir folder;
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t writer = ::fork();
        if (writer == 0)
        {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::close(ends[0]);
            tToPipe observer(ends[1]);
            tDataStorageIO storage("", ".data");
            storage.SetWriteObserver(&observer);
            storage.CreateNewWritingFile(folder.file(""), "", false);
            for (std::uint64_t i = 1;; ++i)
                storage.WriteData("segment", 7, i);
        }
        ::close(ends[1]);
        std::uint64_t heard = 0;
        std::uint32_t count = 0;
        for (int calls = 0; ::read(ends[0], &count, sizeof count) == sizeof count; ++calls)
        {
            heard += count;
            if (calls == 30 * round)
                ::kill(writer, SIGKILL);
        }
        ::close(ends[0]);
        ::waitpid(writer, nullptr, 0);
        EXPECT_GE(segmentsBelow(folder.string()).size(), heard);
        EXPECT_GT(heard, 0u);
    }
}
