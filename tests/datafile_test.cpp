// One data file: what its writer leaves, whole, on a full disk and when it dies, and what its reader believes.
#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <tuple>

#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/datafile/datafilewriter.h"
#include "support/filebytes.h"
#include "support/pwritehook.h"
#include "support/recordedsegments.h"
#include "support/recording.h"
#include "support/tempdir.h"

using namespace storage;

namespace
{
constexpr std::uint64_t cNow = 1715934600250;

class tDataFileWriterTest : public testing::Test
{
protected:
    void SetUp() override { ASSERT_NE(writer = tDataFileWriter::create(path), nullptr); }

    static tSegmentBlock blockOf(const tSegments& segments)
    {
        std::size_t size = 64;
        for (const tSegment& segment : segments)
            size += segment.bytes.size() + sizeof(tSegmentEntry);
        tSegmentBlock block(size);
        for (const tSegment& segment : segments)
            std::memcpy(block.push(segment.bytes.size(), segment.time), segment.bytes.data(), segment.bytes.size());
        return block;
    }
    void append(const tSegments& segments)
    {
        const tSegmentBlock block = blockOf(segments);
        for (tBlockCursor cursor{&block}; !cursor.atEnd();)
            writer->append(cursor, cNow);
    }
    static tSegments numbered(std::initializer_list<std::size_t> lengths, std::uint64_t first = 0)
    {
        tSegments segments;
        for (const std::size_t len : lengths)
            segments.push_back({cNow + first + segments.size(), numberedSegment(first + segments.size(), len)});
        return segments;
    }
    std::string bytesAt(std::uint64_t pos, std::size_t len) const { return bytesOf(path, pos, len); }

    tTempDir dir;
    const std::string path = dir.file("x.data");
    std::unique_ptr<tDataFileWriter> writer;
};
}  // namespace

TEST(tBatchQueueTest, knowsWhatIsFilledAndKeepsFourBlocksInAPage)
{
    tBatchQueue queue;
    queue.reserve(1);
    tSegmentBlocks taken;
    std::set<std::uintptr_t> pages;
    std::vector<tSegmentBlock::tPlace> places;
    for (int i = 0; i < 4; ++i)
    {
        places.push_back(queue.push(400'000, 7));
        places.push_back(queue.push(100'000, 8));
        std::memset(places.back().bytes, 1, 100'000);
        places.back().filled();
    }
    for (const auto& place : places)
        pages.insert(reinterpret_cast<std::uintptr_t>(place.bytes) / tHugePage::cSize);
    EXPECT_EQ(pages.size(), 1U);
    queue.take(taken);
    ASSERT_EQ(taken.size(), 4U);
    EXPECT_FALSE(taken[3]->isFilled(0));
    EXPECT_TRUE(taken[3]->isFilled(1));
    places[6].filled();
    EXPECT_TRUE(taken[3]->isFilled(0));
    EXPECT_EQ(taken[3]->entry(0).len, 400'000U);
    EXPECT_EQ(taken[3]->entry(0).tag, 7U);
}

TEST_F(tDataFileWriterTest, putsEveryByteAtItsPlace)
{
    append({{0x0102030405, "first"}, {0, "second!"}});
    const std::string noHead(8, '\0');
    EXPECT_EQ(bytesAt(0, 4), (std::string{'\x00', '\x1A', '\xA0', '\xD0'}));
    EXPECT_EQ(bytesAt(2000, 8), noHead);
    writer->finish();
    EXPECT_EQ(bytesAt(4, 1996), std::string(1996, '\0'));
    EXPECT_EQ(bytesAt(2000, 8), (std::string{2, 0, 0, 0, 7, 0, 0, 0}));
    EXPECT_EQ(bytesAt(2008, 40), std::string(40, '\0'));
    EXPECT_EQ(bytesAt(2048, 21),
              (std::string{5, 4, 3, 2, 1, 0, 0, 0, '\x80', '\x96', '\x98', 0, 0, 0, 0, 0, 5, 0, 0, 0, 0}));
    const std::string now{'\x3A', '\x1C', '\xAC', '\x85', '\x8F', 1, 0, 0};
    EXPECT_EQ(bytesAt(2069, 21), (now + std::string{'\x85', '\x96', '\x98', 0, 0, 0, 0, 0, 7, 0, 0, 0, 0}));
    EXPECT_EQ(bytesAt(2090, 10'000'000 - 2090), std::string(10'000'000 - 2090, '\0'));
    EXPECT_EQ(bytesAt(10'000'000, 12), "firstsecond!");
    EXPECT_EQ(std::filesystem::file_size(path), 10'000'012u);
}

TEST_F(tDataFileWriterTest, finishesAFileWithoutSegmentsAndMakesNoneWhereOneExistsOrCannotBe)
{
    EXPECT_EQ(tDataFileWriter::create(path), nullptr);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(tDataFileWriter::create(dir.file("none/x.data")), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(std::filesystem::file_size(path), 4u);
    writer->finish();
    EXPECT_EQ(std::filesystem::file_size(path), 2008u);
    EXPECT_EQ(segmentsOf(path), tSegments{});
}

namespace
{
// Something happens right before each read.
class tReadHook
{
public:
    explicit tReadHook(std::function<void(off_t)> before)
    {
        s_before = std::move(before);
        tFileCalls::s_read = [](int file, void* to, std::size_t len, off_t pos) {
            s_before(pos);
            return ::pread(file, to, len, pos);
        };
    }
    ~tReadHook() { tFileCalls::s_read = ::pread; }
    tReadHook(const tReadHook&) = delete;
    tReadHook& operator=(const tReadHook&) = delete;

private:
    static inline std::function<void(off_t)> s_before;
};
}  // namespace

TEST_F(tDataFileWriterTest, isNeverSeenDamagedWhileItIsWritten)
{
    const struct
    {
        off_t pos;  // of the read before which more is written
        bool finish;
        std::size_t before, seen;
    } cases[] = {{2048, false, 2, 4}, {2000, false, 2, 4}, {2048, true, 2, 4}, {2000, true, 0, 2}, {2000, true, 2, 4}};
    for (const auto& c : cases)
    {
        const std::string file = dir.file(std::to_string(&c - cases));
        ASSERT_NE(writer = tDataFileWriter::create(file), nullptr);
        if (c.before != 0)
            append(numbered({10, 20}));
        const tReadHook hook([&](off_t pos) {
            if (pos != c.pos)
                return;
            append(numbered({30, 40}, 2));
            if (c.finish)
                writer->finish();
        });
        tDataFile reader;
        ASSERT_TRUE(reader.open(file));
        EXPECT_EQ(reader.damagedCount(), 0u) << &c - cases;
        EXPECT_EQ(reader.recordCount(), c.seen) << &c - cases;
    }
    std::ofstream(dir.file("new"));
    int looks = 0;
    const tReadHook hook(
        [&](off_t pos) { pos == 0 && ++looks == 2 ? putBytes(dir.file("new"), 0, cPlainMagic) : void(); });
    EXPECT_TRUE(tDataFile().open(dir.file("new")));
}

TEST_F(tDataFileWriterTest, isFullBehindTheSegmentThatStartsBeyondTheLimit)
{
    const tPwriteHook noDisk([](int, const void*, std::size_t len, off_t) { return static_cast<ssize_t>(len); });
    tSegmentBlock tenth(103'857'600 + 64);
    tenth.push(103'857'600, cNow);
    for (int i = 0; i < 10; ++i)  // the next segment starts at 1,048,576,000 exactly
    {
        tBlockCursor cursor{&tenth};
        writer->append(cursor, cNow);
    }
    append({{1, "a"}});
    EXPECT_FALSE(writer->isFull());
    const tSegmentBlock block = blockOf({{1, "a"}, {2, "b"}, {3, "c"}});
    tBlockCursor cursor{&block};
    writer->append(cursor, cNow);
    EXPECT_TRUE(writer->isFull());
    EXPECT_EQ(cursor.segment, 1u);
    EXPECT_EQ(cursor.offset, 1u);
}

TEST_F(tDataFileWriterTest, givesUpOnlyWhatTheDiskRefusesAndGoesOnWhenThereIsRoom)
{
    using tKept = std::set<std::size_t>;  // of the segments given meanwhile
    const std::tuple<const char*, std::uint64_t, std::uint64_t, tKept> cases[] = {
        {"behind 370 bytes", 10'000'000 + 19 + 370, UINT64_MAX, {0, 1, 3, 5}},
        {"for index records", 2048, 10'000'000, {}},
        {"for the magic", 0, UINT64_MAX, {}}};
    for (const auto& [noRoom, from, to, kept] : cases)
    {
        SCOPED_TRACE(noRoom);
        const std::string file = dir.file(noRoom);
        tSegments expected = from == 0 ? tSegments() : numbered({9, 10});
        const tSegments given = numbered({100, 200, 300, 50, 70, 20, 10, 90}, 2), later = numbered({1000, 8}, 20);
        testing::internal::CaptureStderr();
        std::optional<tPwriteHook> full;
        if (from == 0)
            full.emplace(tPwriteHook::noRoom(from, to));
        ASSERT_NE(writer = tDataFileWriter::create(file), nullptr);
        append(expected);
        if (!full)
            full.emplace(tPwriteHook::noRoom(from, to));
        append(given);
        full.reset();
        EXPECT_EQ(writer->lost(), given.size() - kept.size());
        append(later);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), file + ": No space left on device\n");
        writer->finish();
        for (const std::size_t number : kept)
            expected.push_back(given[number]);
        expected.insert(expected.end(), later.begin(), later.end());
        EXPECT_EQ(segmentsOf(file), expected);
        EXPECT_EQ(bytesOf(file, 2000, 8), (std::string{static_cast<char>(expected.size()), 0, 0, 0, '\xE8', 3, 0, 0}));
    }
}

namespace
{
// Lets every write go out page by page, as a dying process leaves it, and looks at the index in between.
class tDyingWriterTest : public tDataFileWriterTest
{
protected:
    static constexpr std::size_t cPage = 4096;
    static constexpr std::size_t cLen = 300;  // of every segment: a length that was cut is another

    ssize_t writePageByPage(int file, const void* data, std::size_t len, off_t pos)
    {
        const char* const bytes = static_cast<const char*>(data);
        for (std::size_t done = 0; done < len;)
        {
            const std::size_t at = static_cast<std::size_t>(pos) + done;
            const std::size_t piece = std::min(len - done, cPage - at % cPage);
            EXPECT_EQ(tPwriteHook::write(file, bytes + done, piece, static_cast<off_t>(at)),
                      static_cast<ssize_t>(piece));
            done += piece;
            look();
        }
        return static_cast<ssize_t>(len);
    }
    // From the last record known to be there on: whole records of what was given, in order, then one without time or
    // length, where readers end.
    void look()
    {
        ++m_looks;
        std::array<char, cIndexSlotSize * 512> index{};
        const std::uint64_t from = cIndexPos + cIndexSlotSize * m_published;
        ASSERT_GE(::pread(m_reading.get(), index.data(), index.size(), static_cast<off_t>(from)), 0);
        std::size_t visible = m_published;
        for (std::size_t i = 0; i < 512; ++i, ++visible)
        {
            tIndexSlot slot;
            std::memcpy(slot.data(), &index[i * cIndexSlotSize], cIndexSlotSize);
            const tNormalIndexTable record = decodeNormal(slot);
            if (record.tim == 0 || record.len == 0)
                break;
            ASSERT_LT(visible, m_given.size());
            ASSERT_EQ(record.tim, m_given[visible].time) << "record " << visible;
            ASSERT_EQ(record.pos, cPayloadPos + visible * cLen) << "record " << visible;
            ASSERT_EQ(record.len, cLen) << "record " << visible;
        }
        ASSERT_LE(cPayloadPos + visible * cLen, std::max(cPayloadPos, std::filesystem::file_size(path)));
        m_shown = visible;
    }
    void record(std::size_t run)
    {
        tSegments segments;
        for (std::size_t i = 0; i < run; ++i)
            segments.push_back({timeOf(m_given.size() + i), numberedSegment(m_given.size() + i, cLen)});
        m_given.insert(m_given.end(), segments.begin(), segments.end());
        append(segments);
        m_published = m_given.size();
        ASSERT_EQ(m_shown, m_published);
    }
    // Records before the one that the next page boundary cuts.
    std::size_t wholeInPage() const
    {
        return (cPage - (cIndexPos + cIndexSlotSize * m_published) % cPage) / cIndexSlotSize;
    }
    // Times whose low or high bytes are zero: cut ones may look like none or like another.
    static std::uint64_t timeOf(std::size_t i) { return i % 3 == 0 ? cNow + i : i % 3 == 1 ? 1ull << 40 : 1 + i % 200; }

    tDescriptor m_reading;
    tSegments m_given;
    std::size_t m_published = 0;  // records that append() is done with
    std::size_t m_shown = 0;      // records that a reader finds
    std::size_t m_looks = 0;

    void SetUp() override
    {
        tDataFileWriterTest::SetUp();
        m_reading = tDescriptor(::open(path.c_str(), O_RDONLY));
    }
};
}  // namespace

// As a page is 4096 bytes and a record 21, every 21 pages each place of a record relative to a page comes up.
TEST_F(tDyingWriterTest, leavesWholeRecordsInOrderWhereverItIsCut)
{
    const tPwriteHook hook([this](int file, const void* data, std::size_t len, off_t pos) {
        return writePageByPage(file, data, len, pos);
    });
    for (const std::size_t run : {1u, 2u, 3u, 5u})
        for (const std::size_t end = m_published + 4096; m_published < end && !HasFatalFailure();)
            record(run);
    for (int pages = 0; pages < 42 && !HasFatalFailure(); pages += 2)
    {
        record(wholeInPage());
        record(250);
    }
    EXPECT_GT(m_looks, 2 * 8000u);
    EXPECT_TRUE(segmentsOf(path) == m_given);
}

namespace
{
constexpr std::uint64_t cIndexEnd = 2048 + 3 * 21, cFileEnd = 10'000'021;

// A file of three segments, "spoke", four bytes and "depth 12.5 m", which tests damage before they look at it.
class tDataFileReaderTest : public testing::Test
{
protected:
    void SetUp() override { restore(); }
    void restore()
    {
        ::unlink(path.c_str());
        recordByHand(path, {{cNow, first}, {cNow, second}, {cNow + 1, third + " 12.5 m"}});
    }
    // "count+damaged" and the payloads that can be read; "-" for a file that does not open.
    std::string seen()
    {
        tDataFile file;
        std::string error, bytes;
        if (!file.open(path, &error))
            return error.rfind(path + ": ", 0) == 0 ? "-" : "an error without a name: " + error;
        std::string text = std::to_string(file.recordCount()) + "+" + std::to_string(file.damagedCount());
        for (std::size_t i = 0; i < file.recordCount(); ++i)
            text += file.read(i, bytes) ? " " + bytes.substr(0, 5) : " ?";
        return text;
    }

    tTempDir dir;
    const std::string path = dir.file("0000.data");
    const std::string first = "spoke", second{"\x00\x01\x02\xff", 4}, third = "depth";
    const std::string whole = "3+0 " + first + " " + second + " " + third;
};
}  // namespace

TEST_F(tDataFileReaderTest, readsWhatWasMadeByHand)
{
    tDataFile file;
    ASSERT_TRUE(file.open(path));
    EXPECT_EQ(file.kind(), storage::cDataFileHead);
    EXPECT_FALSE(file.isCompressed());
    EXPECT_STREQ(storage::fileFormName(file.kind()), "plain");
    EXPECT_STREQ(storage::fileFormName(storage::tFileHeadSymbol{0x12345678}), "unknown");
    EXPECT_TRUE(file.finished());
    EXPECT_EQ(file.size(), cFileEnd);
    EXPECT_EQ(file.payloadBytes(), 21u);
    ASSERT_EQ(file.recordCount(), 3u);
    EXPECT_EQ(file.record(2).timeMs, cNow + 1);
    EXPECT_EQ(file.record(2).pos, 10'000'009u);
    EXPECT_EQ(file.record(2).len, 12u);
    std::string bytes = "left over";
    EXPECT_TRUE(file.read(2, bytes));
    EXPECT_EQ(bytes, "depth 12.5 m");
    EXPECT_FALSE(file.read(3, bytes));
    EXPECT_EQ(seen(), whole);
}

TEST_F(tDataFileReaderTest, takesFromACutFileWhatIsStillWhole)
{
    const std::pair<std::uint64_t, std::string> cases[] = {{0, "-"},
                                                           {3, "-"},
                                                           {4, "0+0"},
                                                           {2003, "0+3"},  // says three records and holds none
                                                           {2048 + 20, "0+3"},
                                                           {cIndexEnd, "0+3"},
                                                           {10'000'004, "0+3"},
                                                           {10'000'005, "1+2 " + first},
                                                           {cFileEnd - 1, "2+1 " + first + " " + second},
                                                           {cFileEnd, whole}};
    for (const auto& [size, expected] : cases)
    {
        restore();
        ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(size)), 0);
        EXPECT_EQ(seen(), expected) << size;
    }
}

TEST_F(tDataFileReaderTest, believesNothingThatCannotBe)
{
    const std::uint64_t record2 = 2048 + 21, limit = 1ull << 48;
    const std::string withoutSecond = "2+1 " + first + " " + third;
    using tText = std::string;
    const std::tuple<const char*, std::uint64_t, tText, tText> cases[] = {
        {"foreign magic", 0, "RIFF", "-"},
        {"a Huffman file's records cannot be read yet", 0, cHuffmanMagic, "3+0 ? ? ?"},
        {"fewer records than there are", 2000, indexHead(2), "2+0 " + first + " " + second},
        {"more records, whose times are zero", 2000, indexHead(5), whole},
        {"not finished", 2000, indexHead(0), whole},
        {"a longest segment of 4 GiB", 2000, indexHead(3, 0xFFFFFFFF), whole},
        {"time zero ends the index", record2, indexRecord(0, 10'000'005, 4), "1+0 " + first},
        {"the last possible time", record2, indexRecord(limit - 1, 10'000'005, 4), whole},
        {"an impossible time", record2, indexRecord(limit, 10'000'005, 4), withoutSecond},
        {"empty at the end of the file", record2, indexRecord(cNow, cFileEnd, 0), "3+0 spoke  depth"},
        {"one byte too long", record2, indexRecord(cNow, cFileEnd - 5, 6), withoutSecond},
        {"an end that overflows", record2, indexRecord(cNow, UINT64_MAX - 2, 0xFFFFFFFF), withoutSecond},
        {"overlapping another", record2, indexRecord(cNow, 10'000'001, 4), "3+0 spoke poke depth"}};
    for (const auto& [what, offset, bytes, expected] : cases)
    {
        restore();
        putBytes(path, offset, bytes);
        EXPECT_EQ(seen(), expected) << what;
    }
}

TEST_F(tDataFileReaderTest, readsNoFurtherThanTheIndexAreaHoweverManyRecordsAreSaid)
{
    putBytes(path, 2000, indexHead(0xFFFFFFFF));
    tDataFile file;
    ASSERT_TRUE(file.open(path));
    EXPECT_EQ(file.recordCount(), 3u);
    EXPECT_EQ(file.damagedCount(), 0xFFFFFFFFu - 476'091u);

    const std::string record = indexRecord(cNow, 0, 1);
    std::string index;
    for (int i = 0; i < 476'095; ++i)
        index += record;
    putBytes(path, 2048, index);
    for (const std::uint32_t said : {0u, 0xFFFFFFFFu, 476'092u})
    {
        putBytes(path, 2000, indexHead(said));
        ASSERT_TRUE(file.open(path));
        EXPECT_EQ(file.recordCount(), 476'091u) << said;
    }
}

TEST_F(tDataFileReaderTest, leavesAnIndexThatIsWholeAndInOrderOnDiskForPlaying)
{
    const std::size_t count = 2'100;
    std::string index;
    for (std::uint64_t i = 0; i < count; ++i)
        index += indexRecord(cNow + i / 2, 10'000'000 + i % 5, 1);
    const auto opened = [&](const std::string& changed, std::size_t record) {
        putBytes(path, 2048, index + indexRecord(0, 0, 0));
        putBytes(path, 2048 + record * 21, changed);
        putBytes(path, 2000, indexHead(count));
        return tDataFileReader::openToPlay(path);
    };
    const auto onDisk = opened("", 0);
    EXPECT_TRUE(onDisk->index().empty());
    EXPECT_EQ(onDisk->count(), count);
    EXPECT_EQ(onDisk->longestRun(), 2u);
    EXPECT_EQ(onDisk->lastTime(), cNow + 1'049);
    EXPECT_TRUE(std::ranges::equal(onDisk->blockTimes(), std::array{cNow, cNow + 512, cNow + 1024}));
    tIndexBlock block;
    onDisk->readBlock(2, block);
    EXPECT_EQ(std::memcmp(block.data(), index.data() + 2'048 * 21, 52 * 21), 0);

    // Not any more: what cannot be read, or says something impossible, keeps its place and lies outside.
    putBytes(path, 2048 + 2'050 * 21, indexRecord(cNow, UINT64_MAX - 5, 4));
    ASSERT_EQ(::truncate(path.c_str(), 2048 + 2'060 * 21 + 20), 0);
    onDisk->readBlock(2, block);
    for (const std::size_t i : {2u, 12u, 51u})
        EXPECT_EQ(decodeNormal(block[i]).pos, UINT64_MAX) << i;
    EXPECT_EQ(timeOf(block[2]), cNow + 1'024);
    EXPECT_EQ(timeOf(block[51]), cNow + 1'029);

    restore();
    EXPECT_EQ(opened(indexRecord(cNow + 5, UINT64_MAX, 1), 2'000)->index().size(), count - 1);
    const auto unsorted = opened(indexRecord(cNow + 5, 10'000'000, 1), 2'000);
    EXPECT_EQ(unsorted->index().size(), count);
    EXPECT_FALSE(unsorted->sorted());
    EXPECT_EQ(unsorted->damaged(), 0u);
}

TEST_F(tDataFileReaderTest, keepsEveryRecordOfALongUnfinishedIndexUpToTheTornOne)
{
    std::string index;
    for (std::uint64_t i = 0; i < 30'000; ++i)
        index += i % 3 == 1 ? indexRecord(cNow + i, cFileEnd, 1) : indexRecord(cNow + i, 10'000'000 + i % 5, 1);
    index += indexRecord(cNow, 0, 0);  // its writer died before the length
    index += indexRecord(cNow, 0, 1);
    putBytes(path, 2000, indexHead(0) + std::string(40, '\0') + index);
    tDataFile file;
    ASSERT_TRUE(file.open(path));
    EXPECT_FALSE(file.finished());
    EXPECT_EQ(file.damagedCount(), 10'000u);
    ASSERT_EQ(file.recordCount(), 20'000u);
    for (std::size_t i = 0; i < 20'000; ++i)
        ASSERT_EQ(file.record(i).timeMs, cNow + i / 2 * 3 + i % 2 * 2);
}
