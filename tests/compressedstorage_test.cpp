// Recordings that are compressed when they are finished, and files converted later.
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/datastorageio.h"
#include "support/ownnamespace.h"
#include "support/recordedsegments.h"
#include "support/recording.h"
#include "support/replaylog.h"
#include "support/tempdir.h"

namespace fs = std::filesystem;
using storage::tDataFileConverter;
using storage::tDataStorageIO;

namespace
{
// Bytes of which some are frequent, so that codes are short and records end in mid-byte.
std::string unevenSegment(std::uint64_t number, std::size_t len)
{
    std::string bytes = noise().substr(number * 31 % 65'536, len);
    for (char& byte : bytes)
        if (static_cast<unsigned char>(byte) > 40)
            byte = static_cast<char>(byte & 3);
    return bytes;
}

tSegments unevenSegments(std::size_t count, std::size_t longest = 700)
{
    tSegments segments;
    for (std::size_t i = 0; i < count; ++i)
        segments.push_back({1000 + i, unevenSegment(i, 1 + i * 37 % longest)});
    for (std::size_t i = 0; i < count; i += 5)
        segments[i].bytes.resize(1);  // codes inside one byte
    return segments;
}

class tCompressedStorageTest : public testing::Test
{
protected:
    // Records with compression, in `folder` (ends with "/"), and returns the path that the file had while it was
    // written.
    std::string record(const tSegments& segments, const std::string& folder)
    {
        fs::create_directories(folder);
        tDataStorageIO io("", ".data");
        EXPECT_TRUE(io.CreateNewWritingFile(folder, "made", true));
        const std::string path = io.GetCurrentWriteDataFileName();
        for (const tSegment& segment : segments)
            io.WriteData(segment.bytes.data(), segment.bytes.size(), segment.time);
        EXPECT_TRUE(io.WaitWriteIdle(20'000));
        io.FinishWrite();
        return path;  // destruction waits for the compression
    }
    std::string record(const tSegments& segments) { return record(segments, dir.string() + "/"); }
    static std::string encoded(const std::string& path) { return path.substr(0, path.size() - 5) + ".tar.data"; }
    std::string plainFile(const tSegments& segments, const char* name = "p.data")
    {
        std::vector<tHandSegment> made;
        for (const tSegment& segment : segments)
            made.push_back({segment.time, segment.bytes});
        recordByHand(dir.file(name), made);
        return dir.file(name);
    }
    static std::string contents(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    tTempDir dir;
};

std::uint32_t indexNum(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::uint32_t number = 0;
    file.seekg(2000);
    file.read(reinterpret_cast<char*>(&number), sizeof number);
    return number;
}

class tEndlessObserver : public storage::iConversionObserver
{
public:
    explicit tEndlessObserver(storage::tConversionStep last) : m_last(last) {}
    bool UpdateConversion(storage::tConversionStep step, uint64_t done, uint64_t total) override
    {
        EXPECT_LE(done, total);
        return step != m_last;
    }

private:
    const storage::tConversionStep m_last;
};
}  // namespace

TEST_F(tCompressedStorageTest, replaysWhatThePlainFileWouldHave)
{
    const tSegments segments = unevenSegments(3000);
    const std::string path = record(segments);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(segmentsOf(encoded(path)), segments);
    tReplayLog log;
    tDataStorageIO player("", ".data");
    player.OpenReadDataFileorFolder(dir.string(), &log);
    player.FastSlowForward(10);
    ASSERT_TRUE(log.waitFor("4"));
    player.CloseReadingFile();
    ASSERT_EQ(log.segments().size(), segments.size());
    for (std::size_t i = 0; i < segments.size(); ++i)
        ASSERT_EQ(log.segments()[i].bytes, segments[i].bytes) << i;
}

TEST_F(tCompressedStorageTest, beginsEachSegmentAtTheBitWhereTheOneBeforeEnds)
{
    const std::string bytes = contents(encoded(record(unevenSegments(500))));
    ASSERT_GT(bytes.size(), 10'000'000u);
    EXPECT_EQ(bytes.substr(0, 4), cHuffmanMagic);
    std::uint64_t next = 10'000'000 * 8, longest = 0;
    for (std::size_t i = 0; i < 500; ++i)
    {
        std::uint64_t pos = 0;
        std::uint32_t bits = 0;
        const char* const slot = &bytes[2048 + 21 * i];
        std::memcpy(&pos, slot + 8, sizeof pos);
        std::memcpy(&bits, slot + 16, sizeof bits);
        ASSERT_EQ(pos * 8 + static_cast<unsigned char>(slot[20]), next) << i;
        next += bits;
        longest = std::max<std::uint64_t>(longest, bits);
    }
    EXPECT_EQ(bytes.substr(2000, 8), indexHead(500, static_cast<std::uint32_t>(longest)));
}

TEST_F(tCompressedStorageTest, leavesPlainWhatWouldNotComeBack)
{
    tSegments codesOf32Bits;  // counts like Fibonacci's make codes of up to 32 bits
    std::uint32_t count = 1, before = 0;
    for (int value = 0; value < 33; ++value)
    {
        for (std::uint32_t left = count; left != 0; left -= std::min(left, 1'000'000u))
            codesOf32Bits.push_back({1000, std::string(std::min(left, 1'000'000u), static_cast<char>(value))});
        before = std::exchange(count, count + before);
    }
    for (const tSegments& segments : {tSegments{{1, "aaaa"}, {2, "a"}}, tSegments{}, codesOf32Bits})
    {
        const std::string path = record(segments);
        EXPECT_TRUE(fs::exists(path));
        EXPECT_FALSE(fs::exists(encoded(path)));
        EXPECT_EQ(segmentsOf(path), segments);
    }
}

TEST_F(tCompressedStorageTest, compressesEveryFileOfARollOver)
{
    tSegments segments;
    for (std::uint64_t i = 0; i < 480'000; ++i)  // more than one index holds
        segments.push_back({1000 + i, i % 3 == 0 ? "ab" : "c"});
    record(segments);
    const std::set<std::string> files = dataFilesIn(dir.string());
    ASSERT_EQ(files.size(), 2u);
    for (const std::string& file : files)
        EXPECT_NE(file.find(".tar.data"), std::string::npos);
    EXPECT_EQ(segmentsBelow(dir.string()), segments);
}

TEST_F(tCompressedStorageTest, looksForTheSuffixInTheNameOnly)
{
    const std::string folder = dir.string() + "/rec.data/";
    const std::string path = record(unevenSegments(20), folder);
    EXPECT_TRUE(fs::exists(encoded(path)));
    EXPECT_EQ(encoded(path).find(folder), 0u);
}

TEST_F(tCompressedStorageTest, staysPlainWhereItIsGivenUp)
{
    tDataStorageIO io("", ".data");
    ASSERT_TRUE(io.CreateNewWritingFile(dir.string() + "/", "made", true));
    const std::string path = io.GetCurrentWriteDataFileName();
    const std::string bytes = unevenSegment(0, 1'000'000);
    for (std::uint64_t i = 0; i < 150; ++i)
        io.WriteData(bytes.data(), bytes.size(), 1000 + i);
    ASSERT_TRUE(io.WaitWriteIdle(20'000));
    io.FinishWrite();
    EXPECT_EQ(io.GetCompressingCnt(), 1u);
    io.CancelCompressing();
    ASSERT_TRUE(waitUntil([&] { return io.GetCompressingCnt() == 0; }));
    EXPECT_EQ(segmentsOf(path).size(), 150u);
    EXPECT_EQ(fs::file_size(path), 160'000'000u);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.string()), {}), 1);
}

// Kept on purpose: a recording whose compressed file cannot even be begun is removed.
TEST_F(tCompressedStorageTest, removesThePlainFileWhereNoOutputCanBeMade)
{
    const std::string folder = dir.string() + "/";
    tDataStorageIO io("", ".data");
    ASSERT_TRUE(io.CreateNewWritingFile(folder, "made", true));
    const std::string path = io.GetCurrentWriteDataFileName();
    fs::create_directories(encoded(path) + ".part");
    io.WriteData("abc", 3, 1000);
    ASSERT_TRUE(io.WaitWriteIdle(5000));
    io.FinishWrite();
    ASSERT_TRUE(waitUntil([&] { return io.GetCompressingCnt() == 0; }));
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(tCompressedStorageTest, leavesOneWholeFileWhereverItIsKilled)
{
    tSegments segments;
    for (std::uint64_t i = 0; i < 60; ++i)
        segments.push_back({1000 + i, unevenSegment(i, 900'000)});
    for (int round = 0; round < 12; ++round)
    {
        const std::string folder = dir.file(std::to_string(round)) + "/";
        const pid_t child = ::fork();
        if (child == 0)
        {
            record(segments, folder);
            ::_exit(0);
        }
        // The index head of the plain file is written, its compression begins: it takes some 50 to 200 ms.
        ASSERT_TRUE(waitUntil(
            [&] {
                const auto files = fs::exists(folder) ? dataFilesIn(folder) : std::set<std::string>();
                return !files.empty() && indexNum(*files.begin()) == 60;
            },
            std::chrono::seconds(20)));
        std::this_thread::sleep_for(std::chrono::milliseconds(round * 12));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        const std::set<std::string> files = dataFilesIn(folder);
        ASSERT_FALSE(files.empty());
        for (const std::string& file : files)
            EXPECT_TRUE(segmentsOf(file) == segments) << file;
    }
}

TEST_F(tCompressedStorageTest, convertsThereAndBackByteForByte)
{
    const std::string path = plainFile(unevenSegments(2000));
    const std::string before = contents(path);
    fs::permissions(path, fs::perms::owner_read | fs::perms::group_read);
    std::string result, error;
    ASSERT_TRUE(tDataFileConverter::Compress(path, ".data", nullptr, &result, &error)) << error;
    EXPECT_EQ(result, dir.file("p.tar.data"));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(fs::status(result).permissions(), fs::perms::owner_read | fs::perms::group_read);
    EXPECT_EQ(segmentsOf(result), unevenSegments(2000));
    ASSERT_TRUE(tDataFileConverter::Expand(result, ".data", nullptr, &result, &error)) << error;
    EXPECT_EQ(result, path);
    // The longest segment is 0 in the head that was made by hand.
    EXPECT_EQ(contents(path).replace(2004, 4, before.substr(2004, 4)), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.string()), {}), 1);
}

TEST_F(tCompressedStorageTest, refusesToConvertAndSaysWhy)
{
    const tSegments segments = unevenSegments(10);
    const std::string unfinished = dir.file("u.data"), cut = plainFile(segments, "c.data");
    recordByHand(unfinished, {{1, "ab"}}, false);
    fs::resize_file(cut, fs::file_size(cut) - 1);
    const std::string longer = plainFile(segments, "l.data"), taken = plainFile(segments, "t.data");
    putBytes(longer, fs::file_size(longer), "x");
    putBytes(dir.file("t.tar.data"), 0, "x");
    const std::pair<std::string, const char*> cases[] = {
        {unfinished, "unfinished"}, {cut, "damaged"},    {longer, "belong to none"},
        {taken, "already"},         {"none", "No such"}, {plainFile({{1, "aa"}}, "o.data"), "no code"}};
    for (const auto& [path, reason] : cases)
    {
        SCOPED_TRACE(path);
        const std::string before = contents(path);
        std::string error;
        EXPECT_FALSE(tDataFileConverter::Compress(path, ".data", nullptr, nullptr, &error));
        EXPECT_NE(error.find(reason), std::string::npos) << error;
        EXPECT_EQ(error.find(path), 0u) << error;
        EXPECT_EQ(contents(path), before);
        EXPECT_FALSE(fs::exists(path + ".part"));
    }
    EXPECT_FALSE(tDataFileConverter::Expand(longer, ".data", nullptr, nullptr, nullptr));
}

TEST_F(tCompressedStorageTest, endsAtEveryStepWithoutATrace)
{
    const std::string path = plainFile(unevenSegments(9000));
    for (const auto step : {storage::eCounting, storage::eWriting, storage::eVerifying})
    {
        tEndlessObserver observer(step);
        std::string error;
        EXPECT_FALSE(tDataFileConverter::Compress(path, ".data", &observer, nullptr, &error));
        EXPECT_NE(error.find("interrupted"), std::string::npos) << error;
    }
    EXPECT_EQ(segmentsOf(path), unevenSegments(9000));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.string()), {}), 1);
}

TEST_F(tCompressedStorageTest, keepsTheOriginalOnAFullDisk)
{
    if (!tTinyDisk::enter().empty())
        GTEST_SKIP() << tTinyDisk::enter();
    const tTinyDisk disk(dir.string(), 3);
    ASSERT_TRUE(disk.mounted());
    tSegments segments;  // 2.4 MB of noise: a second file does not fit beside it
    for (std::uint64_t i = 0; i < 40; ++i)
        segments.push_back({1000 + i, numberedSegment(i, 60'000)});
    const std::string path = plainFile(segments);
    std::string error;
    EXPECT_FALSE(tDataFileConverter::Compress(path, ".data", nullptr, nullptr, &error));
    EXPECT_NE(error.find("No space left"), std::string::npos) << error;
    EXPECT_TRUE(segmentsOf(path) == segments);
    EXPECT_FALSE(fs::exists(path + ".part"));
}

TEST_F(tCompressedStorageTest, playsOnWhereAFileIsCompressedMeanwhile)
{
    const std::string path = plainFile(unevenSegments(50));
    std::atomic<bool> opened{false};
    tReplayLog log;
    tDataStorageIO player("", ".data");
    log.react = [&](const std::string& word) {
        if (word == "0")
            opened = true;
        if (word == "1" && opened.exchange(false))
        {
            std::string error;
            EXPECT_TRUE(tDataFileConverter::Compress(path, ".data", nullptr, nullptr, &error)) << error;
        }
    };
    player.OpenReadDataFileorFolder(path, &log);
    ASSERT_TRUE(log.waitFor("4"));
    EXPECT_EQ(log.segments().size(), 50u);
    EXPECT_EQ(player.GetUnreadCnt(), 0u);
}

TEST_F(tCompressedStorageTest, refusesAFileThatSomebodyElseIsConverting)
{
    const std::string path = plainFile(unevenSegments(9000));
    struct tSecond : storage::iConversionObserver
    {
        bool UpdateConversion(storage::tConversionStep step, uint64_t, uint64_t) override
        {
            if (step == storage::eVerifying)
            {
                EXPECT_FALSE(tDataFileConverter::Compress(path, ".data", nullptr, nullptr, &error));
            }
            return true;
        }
        std::string path, error;
    } second;
    second.path = path;
    std::string result;
    ASSERT_TRUE(tDataFileConverter::Compress(path, ".data", &second, &result, nullptr));
    EXPECT_NE(second.error.find("busy"), std::string::npos) << second.error;
    EXPECT_EQ(segmentsOf(result), unevenSegments(9000));
}

TEST_F(tCompressedStorageTest, doesNotExpandWhatItsHeadDoesNotDescribe)
{
    std::string path = plainFile(unevenSegments(100)), error;
    ASSERT_TRUE(tDataFileConverter::Compress(path, ".data", nullptr, &path, nullptr));
    const std::string before = contents(path);
    putBytes(path, 24, std::string(1, static_cast<char>(before[24] ^ 0x40)));  // a count
    EXPECT_FALSE(tDataFileConverter::Expand(path, ".data", nullptr, nullptr, &error));
    EXPECT_TRUE(fs::exists(path));
    // A record that claims more bits than everything that was counted has.
    putBytes(path, 24, before.substr(24, 1));
    putBytes(path, 2048 + 16, littleEndian(100'000'000, 4));
    fs::resize_file(path, 40'000'000);
    storage::tDataFile file;
    ASSERT_TRUE(file.open(path));
    std::string bytes;
    EXPECT_FALSE(file.read(0, bytes));
    EXPECT_TRUE(file.read(1, bytes));
}

// Of more than 64 files those that were not read for longest are opened again when they are due.
TEST_F(tCompressedStorageTest, neverReadsAFileByTheIndexOfAnother)
{
    for (std::uint64_t i = 0; i < 70; ++i)
        plainFile({{1000 + i, "abc"}}, ("f" + std::to_string(10 + i) + ".data").c_str());
    const std::string last = dir.file("f79.data");
    tReplayLog log;
    tDataStorageIO player("", ".data");
    log.react = [&](const std::string& word) {
        if (word != "1" || fs::exists(dir.file("old")))
            return;
        fs::rename(last, dir.file("old"));
        plainFile({{5000, "xyz"}}, "f79.data");
    };
    player.OpenReadDataFileorFolder(dir.string(), &log);
    ASSERT_TRUE(log.waitFor("4"));
    EXPECT_EQ(log.segments().size(), 69u);
    EXPECT_EQ(log.count("xyz"), 0u);
    EXPECT_EQ(player.GetUnreadCnt(), 1u);
}
