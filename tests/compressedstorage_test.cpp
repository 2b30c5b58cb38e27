// Recordings that are compressed when they are finished, files converted later, and what a kill leaves of either.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/datastorageio.h"
#include "common/descriptor.h"
#include "support/filebytes.h"
#include "support/huffmaninputs.h"
#include "support/pwritehook.h"
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

// Does `work` in a process of its own and kills it after `time`; whether it was still at work.
template <typename tWork>
bool killed(std::chrono::milliseconds time, tWork work)
{
    const pid_t process = ::fork();
    if (process == 0)
    {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        work();
        ::_exit(0);
    }
    std::this_thread::sleep_for(time);
    int status = 0;
    ::kill(process, SIGKILL);
    ::waitpid(process, &status, 0);
    return WIFSIGNALED(status);
}

// A disk that puts another byte at `place` of a file.
tPwriteHook::tHandler spoiling(std::uint64_t place)
{
    return [place](int file, const void* data, std::size_t len, off_t pos) {
        std::string bytes(static_cast<const char*>(data), len);
        if (place - static_cast<std::uint64_t>(pos) < len)
            bytes[place - static_cast<std::uint64_t>(pos)] ^= 1;
        return tPwriteHook::write(file, bytes.data(), len, pos);
    };
}

struct tConversionObserver : storage::iConversionObserver
{
    bool UpdateConversion(storage::tConversionStep step, uint64_t done, uint64_t total) override
    {
        EXPECT_LE(done, total);
        return goOn(step);
    }
    std::function<bool(storage::tConversionStep)> goOn;
};

class tCompressedStorageTest : public testing::Test
{
protected:
    // Records into a file that will be compressed, and returns its path.
    static std::string record(tDataStorageIO& io, const tSegments& segments, const std::string& folder)
    {
        fs::create_directories(folder);
        EXPECT_TRUE(io.CreateNewWritingFile(folder, "made", true));
        for (const tSegment& segment : segments)
            io.WriteData(segment.bytes.data(), segment.bytes.size(), segment.time);
        EXPECT_TRUE(io.WaitWriteIdle(60'000));
        return io.GetCurrentWriteDataFileName();
    }
    // The same, compressed when it returns.
    static std::string record(const tSegments& segments, const std::string& folder)
    {
        tDataStorageIO io("", ".data");
        const std::string path = record(io, segments, folder);
        io.FinishWrite();
        return path;  // destruction waits for the compression
    }
    static std::string encoded(const std::string& path) { return path.substr(0, path.size() - 5) + ".tar.data"; }
    static auto entriesIn(const std::string& path) { return std::distance(fs::directory_iterator(path), {}); }
    std::string plainFile(const tSegments& segments, const std::string& name = "p.data")
    {
        recordByHand(dir.file(name), segments);
        return dir.file(name);
    }
    bool compress(const std::string& path, storage::iConversionObserver* told = nullptr)
    {
        return tDataFileConverter::Compress(path, ".data", told, &result, &error);
    }
    // Conversion ended with `text` in its message.
    void expectError(const char* text) const { EXPECT_NE(error.find(text), std::string::npos) << error; }

    tTempDir dir;
    const std::string folder = dir.file("rec.data/");  // the suffix counts in the file's own name only
    tConversionObserver observer;
    std::string result, error;
    tReplayLog log;
};
}  // namespace

TEST_F(tCompressedStorageTest, replaysWhatThePlainFileWouldHave)
{
    const tSegments segments = unevenSegments(3000);
    const std::string path = record(segments, folder);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(segmentsOf(encoded(path)), segments);
    EXPECT_EQ(encoded(path).find(folder), 0u);
    tDataStorageIO player("", ".data");
    player.OpenReadDataFileorFolder(folder, &log);
    player.FastSlowForward(10);
    ASSERT_TRUE(log.waitFor("4"));
    player.CloseReadingFile();
    EXPECT_TRUE(std::ranges::equal(log.segments(), segments, {}, &tReplayLog::tSegment::bytes, &tSegment::bytes));
}

TEST_F(tCompressedStorageTest, beginsEachSegmentAtTheBitWhereTheOneBeforeEnds)
{
    const std::string bytes = contentsOf(encoded(record(unevenSegments(500), folder)));
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
    tSegments codesOf32Bits;
    const std::string bytes = tHuffmanInputs::fibonacci(33);
    for (std::size_t pos = 0; pos < bytes.size(); pos += 1'000'000)
        codesOf32Bits.push_back({1000, bytes.substr(pos, 1'000'000)});
    for (const tSegments& segments : {tSegments{{1, "aaaa"}, {2, "a"}}, tSegments{}, codesOf32Bits})
    {
        const std::string path = record(segments, folder);
        EXPECT_FALSE(fs::exists(encoded(path)));
        EXPECT_TRUE(segmentsOf(path) == segments);
    }
}

TEST_F(tCompressedStorageTest, compressesEveryFileOfARollOver)
{
    tSegments segments;
    for (std::uint64_t i = 0; i < 480'000; ++i)  // more than one index holds
        segments.push_back({1000 + i, i % 3 == 0 ? "ab" : "c"});
    record(segments, folder);
    const std::set<std::string> files = dataFilesIn(folder);
    ASSERT_EQ(files.size(), 2u);
    for (const std::string& file : files)
        EXPECT_NE(file.find(".tar.data"), std::string::npos);
    EXPECT_TRUE(segmentsBelow(folder) == segments);
}

TEST_F(tCompressedStorageTest, staysPlainWhereItIsGivenUp)
{
    tDataStorageIO io("", ".data");
    const std::string path = record(io, tSegments(60, {1000, unevenSegment(0, 1'000'000)}), folder);
    io.FinishWrite();
    EXPECT_EQ(io.GetCompressingCnt(), 1u);
    io.CancelCompressing();
    ASSERT_TRUE(waitUntil([&] { return io.GetCompressingCnt() == 0; }));
    EXPECT_EQ(segmentsOf(path).size(), 60u);
    EXPECT_EQ(fs::file_size(path), 70'000'000u);
    EXPECT_EQ(entriesIn(folder), 1);
}

// Kept on purpose: a recording whose compressed file cannot even be begun is removed.
TEST_F(tCompressedStorageTest, removesThePlainFileWhereNoOutputCanBeMade)
{
    tDataStorageIO io("", ".data");
    const std::string path = record(io, {{1000, "abc"}}, folder);
    fs::create_directories(encoded(path) + ".part");
    io.FinishWrite();
    ASSERT_TRUE(waitUntil([&] { return io.GetCompressingCnt() == 0; }));
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(tCompressedStorageTest, keepsThePlainFileWhereTheOutputIsAnothers)
{
    const tSegments segments = {{1000, "abc"}};
    tDataStorageIO io("", ".data");
    const std::string path = record(io, segments, folder), output = encoded(path) + ".part";
    const tDescriptor others(::open(output.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    ASSERT_EQ(::flock(others.get(), LOCK_EX), 0);
    io.FinishWrite();
    ASSERT_TRUE(waitUntil([&] { return io.GetCompressingCnt() == 0; }));  // while the lock is held
    EXPECT_EQ(segmentsOf(path), segments);
    EXPECT_TRUE(fs::exists(output));
    EXPECT_FALSE(fs::exists(encoded(path)));
}

TEST_F(tCompressedStorageTest, leavesOneWholeFileWhereverItsConversionIsKilled)
{
    tSegments segments;  // some 20 MB
    for (std::uint64_t i = 0; i < 24; ++i)
        segments.push_back({1000 + i, unevenSegment(i, 900'000)});
    plainFile(segments);
    int kills = 0;
    for (int round = 0; round < 30; ++round)
    {
        const std::string path = *dataFilesIn(dir.string()).begin();
        const auto convert = path == dir.file("p.data") ? tDataFileConverter::Compress : tDataFileConverter::Expand;
        const auto time = std::chrono::milliseconds(round * 7 % 125);
        kills += killed(time, [&] { convert(path, ".data", nullptr, nullptr, nullptr); }) ? 1 : 0;
        const std::set<std::string> files = dataFilesIn(dir.string());
        ASSERT_EQ(files.size(), 1u);
        ASSERT_TRUE(segmentsOf(*files.begin()) == segments) << *files.begin();
    }
    EXPECT_GT(kills, 3);
    putBytes(dir.file("q.data.part"), 0, "what a killed one leaves is in nobody's way");
    EXPECT_TRUE(compress(plainFile(segments, "q.data"))) << error;
}

TEST_F(tCompressedStorageTest, convertsThereAndBackByteForByte)
{
    const std::string path = plainFile(unevenSegments(2000)), before = contentsOf(path);
    fs::permissions(path, fs::perms::owner_read | fs::perms::group_read);
    ASSERT_TRUE(compress(path)) << error;
    EXPECT_EQ(result, dir.file("p.tar.data"));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(fs::status(result).permissions(), fs::perms::owner_read | fs::perms::group_read);
    EXPECT_EQ(segmentsOf(result), unevenSegments(2000));
    ASSERT_TRUE(tDataFileConverter::Expand(result, ".data", nullptr, &result, &error)) << error;
    EXPECT_EQ(result, path);
    // The longest segment is 0 in the head that was made by hand.
    EXPECT_TRUE(contentsOf(path).replace(2004, 4, before.substr(2004, 4)) == before);
    EXPECT_EQ(entriesIn(dir.string()), 1);
}

TEST_F(tCompressedStorageTest, convertsRecordsThatDoNotFollowEachOther)
{
    const tSegments segments = unevenSegments(300);
    const std::string path = plainFile(segments), index = contentsOf(path).substr(2048, 300 * 21);
    tSegments turned = segments;
    std::string turnedIndex;
    for (std::size_t i = 0; i < 300; ++i)
    {
        const std::size_t other = i % 7 == 0 ? i + 1 : i % 7 == 1 ? i - 1 : i;
        turnedIndex += index.substr(other * 21, 21);
        turned[i] = segments[other];
    }
    putBytes(path, 2048, turnedIndex);
    ASSERT_EQ(segmentsOf(path), turned);
    ASSERT_TRUE(compress(path)) << error;
    EXPECT_EQ(segmentsOf(result), turned);
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
        const std::string before = contentsOf(path);
        EXPECT_FALSE(compress(path));
        expectError(reason);
        EXPECT_EQ(error.find(path), 0u) << error;
        EXPECT_TRUE(contentsOf(path) == before);
        EXPECT_FALSE(fs::exists(path + ".part"));
    }
    EXPECT_FALSE(tDataFileConverter::Expand(longer, ".data", nullptr, nullptr, nullptr));
}

TEST_F(tCompressedStorageTest, compressesTheWholeRecordsOfAFileThatAFullDiskCut)
{
    const tSegments segments = unevenSegments(10);
    const std::size_t lastTwo = segments[8].bytes.size() + segments[9].bytes.size();
    const auto whole = [&](int change, std::size_t kept, std::uint64_t records, std::uint64_t bytes) {
        const std::string path = plainFile(segments, std::to_string(change) + ".data");
        fs::resize_file(path, static_cast<std::uint64_t>(static_cast<std::int64_t>(fs::file_size(path)) + change));
        storage::tLeftOut leftOut{9, 9};
        ASSERT_TRUE(tDataFileConverter::CompressWhole(path, ".data", nullptr, &result, &leftOut, &error)) << error;
        EXPECT_EQ(segmentsOf(result), tSegments(segments.begin(), segments.begin() + static_cast<long>(kept)));
        EXPECT_EQ(leftOut.records, records);
        EXPECT_EQ(leftOut.bytes, bytes);
    };
    whole(0, 10, 0, 0);
    whole(700, 10, 0, 700);
    whole(1 - static_cast<int>(lastTwo), 8, 2, 1);
}

// What is lost there is not the end of a file.
TEST_F(tCompressedStorageTest, refusesToLeaveOutWhatNoFullDiskCut)
{
    const std::string slot(storage::cIndexSlotSize, '\0');
    const std::pair<std::uint64_t, std::string> damages[] = {{storage::cIndexHeadPos, indexHead(9)},
                                                             {storage::cIndexPos + 9 * 21, slot},
                                                             {storage::cIndexPos + 4 * 21, slot},
                                                             {storage::cIndexPos + 9 * 21 + 6, "\x1"},
                                                             {storage::cIndexPos + 4 * 21 + 15, "\x1"}};
    for (const auto& [place, bytes] : damages)
    {
        SCOPED_TRACE(place);
        const std::string path = plainFile(unevenSegments(10), std::to_string(place) + ".data");
        putBytes(path, place, bytes);
        EXPECT_FALSE(tDataFileConverter::CompressWhole(path, ".data", nullptr, &result, nullptr, &error));
        EXPECT_TRUE(fs::exists(path));
    }
}

TEST_F(tCompressedStorageTest, endsAtEveryStepWithoutATraceAndLetsOnlyOneConvert)
{
    const tSegments segments = unevenSegments(9000);
    const std::string path = plainFile(segments);
    for (const auto step : {storage::eCounting, storage::eWriting, storage::eVerifying})
    {
        observer.goOn = [step](storage::tConversionStep reached) { return reached != step; };
        EXPECT_FALSE(compress(path, &observer));
        expectError("interrupted");
    }
    EXPECT_EQ(segmentsOf(path), segments);
    EXPECT_EQ(entriesIn(dir.string()), 1);
    observer.goOn = [&](storage::tConversionStep step) { return step != storage::eVerifying || !compress(path); };
    EXPECT_TRUE(tDataFileConverter::Compress(path, ".data", &observer, &result, nullptr));
    expectError("busy");
    EXPECT_EQ(segmentsOf(result), segments);
}

TEST_F(tCompressedStorageTest, keepsTheOriginalWhereverTheResultIsSpoiltOrTheDiskIsFull)
{
    const tSegments segments = unevenSegments(9001);  // much of it is compared while the rest is being made
    std::string path = plainFile(segments);
    const std::uint64_t lastRecord = storage::cIndexPos + (segments.size() - 1) * storage::cIndexSlotSize;
    for (const auto convert : {tDataFileConverter::Compress, tDataFileConverter::Expand})
    {
        for (const std::uint64_t place : {storage::cPayloadPos, storage::cPayloadPos + 500'000, storage::cIndexPos,
                                          lastRecord + 8, storage::cIndexHeadPos})
            for (const bool full : {false, true})
            {
                SCOPED_TRACE(place);
                const tPwriteHook hook(full ? tPwriteHook::noRoom(place, place + 1) : spoiling(place));
                EXPECT_FALSE(convert(path, ".data", nullptr, nullptr, &error));
                expectError(full ? "No space left" : "the result");
                EXPECT_TRUE(segmentsOf(path) == segments);
                EXPECT_EQ(entriesIn(dir.string()), 1);
            }
        EXPECT_TRUE(convert(path, ".data", nullptr, &path, &error)) << error;
    }
    EXPECT_TRUE(segmentsOf(path) == segments);
}

TEST_F(tCompressedStorageTest, playsOnWhereAFileIsCompressedMeanwhile)
{
    const std::string path = plainFile(unevenSegments(50));
    log.react = [&](const std::string& word) {
        if (word == "1" && fs::exists(path))
        {
            EXPECT_TRUE(tDataFileConverter::Compress(path, ".data", nullptr, nullptr, nullptr));
        }
    };
    tDataStorageIO player("", ".data");
    player.OpenReadDataFileorFolder(path, &log);
    ASSERT_TRUE(log.waitFor("4"));
    EXPECT_EQ(log.segments().size(), 50u);
    EXPECT_EQ(player.GetUnreadCnt(), 0u);
}

TEST_F(tCompressedStorageTest, doesNotExpandWhatItsHeadDoesNotDescribe)
{
    ASSERT_TRUE(compress(plainFile(unevenSegments(100))));
    const std::string path = result, before = contentsOf(path);
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
