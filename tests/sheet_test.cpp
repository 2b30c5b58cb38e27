// The sheet of a data file: what it says, to which file it belongs, what is never believed, and how it is written.
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/sheetbuilder.h"
#include "KestovaStorage/companions.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/packageview.h"
#include "support/filebytes.h"
#include "support/pwritehook.h"
#include "support/recording.h"
#include "support/tempdir.h"
#include "support/waituntil.h"

namespace
{
using namespace recordings;
namespace fs = std::filesystem;

constexpr std::uint64_t cTime = 1'715'940'000'250;

// Bit by bit, as it is defined.
std::uint32_t crcOf(const std::string& bytes)
{
    std::uint32_t crc = ~0u;
    for (const char byte : bytes)
    {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ (crc & 1 ? 0x82F63B78u : 0);
    }
    return ~crc;
}

class tSheetTest : public testing::Test
{
protected:
    // A finished file of packages and raw segments, two a second, with the sheet that its recorder would have left.
    void record(const std::string& name = "a.data", std::size_t count = 5, std::uint64_t time = cTime)
    {
        segments.clear();
        for (std::size_t i = 0; i < count; ++i)
            segments.push_back({time + 500 * i, i % 3 == 2 ? numberedSegment(i, 100)
                                                           : makePackage(static_cast<std::uint32_t>(i), "message")});
        file = dir.file(name);
        recordByHand(file, segments);
        sheet = built();
        sheet.id = newSheetId();
        sealSheet(sheet, file);
        writeSheet(file, sheet);
    }
    tSheet built() const
    {
        tSheet filled;
        builder().fill(filled);
        return filled;
    }
    tSheetBuilder builder() const
    {
        tSheetBuilder made;
        std::uint64_t position = 10'000'000;
        for (const tSegment& segment : segments)
        {
            made.add(segment.time, static_cast<std::uint16_t>(segment.time % 1000), segment.bytes, position);
            position += segment.bytes.size();
        }
        return made;
    }
    void flip(const std::string& path, std::uint64_t pos, int bit)
    {
        std::string byte = bytesOf(path, pos, 1);
        byte[0] = static_cast<char>(byte[0] ^ 1 << bit);
        putBytes(path, pos, byte);
    }
    void putSheet(const std::string& text) { std::ofstream(sheetPath(), std::ios::binary) << text; }
    std::string sheetPath() const { return dir.file("a.json"); }
    bool isTidy() const { return !fs::exists(dir.file(".sheet.part")); }

    tTempDir dir;
    std::string file;
    tSegments segments;
    tSheet sheet;
};

tSheet fullSheet()
{
    tSheet sheet;
    sheet.kept = sheet.cut = true;
    sheet.carried = 3;
    sheet.recorderVersion = "1.2";
    sheet.recorderHost = "h\"\n\xFF";
    sheet.radarSerial = "A1:2";
    sheet.radarId = 7;
    sheet.radarAddresses = {{"imageStream", "239.17.0.1:6001"}, {"gpsDev", "239.17.0.9:6009"}};
    sheet.spokeLayout = R"([{"azimuth":{"at":4,"per_turn":4096.5},"big":true,"order":"l,\"e"},"cat240",[],{},-1,null])";
    sheet.interface = "eth0 192.168.1.5";
    sheet.losses = {5, 6, 7, {{"239.17.0.1:6001", cTime, cTime + 1}}, 8};
    sheet.clock = {"system", -12.25, 0.5, {{cTime, -3'600'000}, {cTime + 5, 7}}};
    sheet.notes = {{cTime, "a \"note\"\t\xE2\x82\xAC"}, {cTime + 1, ""}};
    return sheet;
}
}  // namespace

TEST_F(tSheetTest, saysTheSameAfterItWasReadAgain)
{
    record();
    tSheet full = fullSheet();
    builder().fill(full);
    full.headCrc32c = 0xDEADBEEF;
    const std::string text = sheetText(full);
    EXPECT_EQ(sheetText(parseSheet(text)), text);
    const tSheet again = parseSheet(text);
    EXPECT_EQ(again.notes[0].text, full.notes[0].text);
    EXPECT_EQ(again.clock.steps[0].stepMs, -3'600'000);
    EXPECT_EQ(again.clock.offsetMs, -12.25);
    EXPECT_EQ(again.spokeLayout, full.spokeLayout);
    EXPECT_EQ(again.losses.sum(), 19u);
    EXPECT_EQ(again.losses.missingOnWire, 8u);
    EXPECT_FALSE(again.streams[0].missingOnWire);
    EXPECT_EQ(again.streams.size(), 2u);
    EXPECT_EQ(again.streams[0].perSecond, full.streams[0].perSecond);
    EXPECT_TRUE(text.starts_with(R"({"schema":"kestova/recording/1","kept":true,"notes_count":2,"lost":19,)"));
}

TEST_F(tSheetTest, keepsALayoutOfSpokesThatIsAWord)
{
    sheet.spokeLayout = "\"cat240\"";
    EXPECT_EQ(parseSheet(sheetText(sheet)).spokeLayout, sheet.spokeLayout);
}

TEST_F(tSheetTest, tellsTheMainThingsByItsFirstFourKilobytes)
{
    record();
    sheet.notes.assign(1000, {cTime, std::string(100, 'n')});
    sheet.losses.diskLost = 4;
    sheet.radarSerial = "A1:2";
    sheet.radarAddresses["x"] = std::string(5000, 'x');
    writeSheet(file, sheet);
    const tSheetSummary summary = readSheetSummary(file);
    ASSERT_TRUE(summary) << summary.reason;
    EXPECT_EQ(summary.notes, 1000u);
    EXPECT_EQ(summary.lost, 4u);
    EXPECT_EQ(summary.records, 5u);
    EXPECT_EQ(summary.lastMs, cTime + 2000);
    EXPECT_EQ(summary.id, sheet.id);
    EXPECT_EQ(summary.radarSerial, "A1:2");
    EXPECT_TRUE(summary.finished && !summary.kept);
}

TEST_F(tSheetTest, staysTheFilesOwnWhateverBitOfItsIdentityFlips)
{
    record();
    for (std::uint64_t pos = 2048; pos < 2048 + 20; ++pos)
    {
        for (int bit = 0; bit < 8; ++bit)
        {
            flip(file, pos, bit);
            EXPECT_TRUE(readSheet(file)) << pos << " " << bit << ": " << readSheet(file).reason;
            EXPECT_TRUE(readSheetSummary(file));
            flip(file, pos, bit);
        }
    }
    flip(file, 2050, 1);
    flip(file, 2058, 1);
    EXPECT_EQ(readSheet(file).state, eSheetState::eForeign) << "two of them";
    EXPECT_EQ(readSheetSummary(file).state, eSheetState::eForeign);
}

TEST_F(tSheetTest, isNeverForeignByABitOfItsOwn)
{
    record();
    const std::string text = contentsOf(sheetPath());
    std::size_t ours = 0, damaged = 0;
    for (std::size_t i = 0; i < text.size() * 8; ++i)
    {
        std::string flipped = text;
        flipped[i / 8] = static_cast<char>(flipped[i / 8] ^ 1 << i % 8);
        putSheet(flipped);
        const tFoundSheet found = readSheet(file);
        EXPECT_NE(found.state, eSheetState::eForeign) << i / 8 << " of " << text << ": " << found.reason;
        ++(found ? ours : damaged);
        const auto& sums = found.sheet.blocks.payloadCrc32c;  // none if the bit is in the key "blocks"
        EXPECT_TRUE(sums.empty() || sums == sheet.blocks.payloadCrc32c) << i;
    }
    EXPECT_GT(ours, 0u);
    EXPECT_GT(damaged, text.size());
}

TEST_F(tSheetTest, isNamedAndIgnoredIfItCannotBeBelieved)
{
    record("b.data", 3, cTime + 3);
    const std::string foreign = contentsOf(dir.file("b.json"));
    record();
    const std::string text = contentsOf(sheetPath());
    std::string later = text, deep, many;
    later.replace(later.find("/1\""), 3, "/2\"");
    for (int i = 0; i < 100'000; ++i)
        deep += "{\"a\":[";
    many = R"({"schema":"kestova/recording/1","streams":[{"per_second":{"messages":[)";
    for (int i = 0; i < 500'000; ++i)
        many += "1,";
    const struct
    {
        std::string text;
        eSheetState state;
        std::string reason;
    } cases[] = {{foreign, eSheetState::eForeign, "belongs to another data file"},
                 {later, eSheetState::eDamaged, "is of a later version (kestova/recording/2)"},
                 {"", eSheetState::eDamaged, "no JSON"},
                 {"{}", eSheetState::eDamaged, "no sheet"},
                 {text + "x", eSheetState::eDamaged, "no JSON"},
                 {deep, eSheetState::eDamaged, "nested"},
                 {many, eSheetState::eDamaged, "impossible value for streams[].per_second.messages[]"},
                 {R"({"schema":"kestova/recording/1","records":-1})", eSheetState::eDamaged, "records"},
                 {R"({"schema":"kestova/recording/1","kept":1})", eSheetState::eDamaged, "kept"},
                 {R"({"schema":"kestova/recording/1","last_ms":1e300})", eSheetState::eDamaged, "last_ms"},
                 {R"({"schema":"kestova/recording/1","last_ms":999999999999999})", eSheetState::eDamaged, "last_ms"}};
    for (const auto& c : cases)
    {
        putSheet(c.text);
        const tFoundSheet found = readSheet(file);
        EXPECT_EQ(found.state, c.state) << c.text.substr(0, 100);
        EXPECT_TRUE(found.reason.starts_with(sheetPath() + ' ')) << found.reason;
        EXPECT_NE(found.reason.find(c.reason), std::string::npos) << found.reason;
    }
    for (std::size_t len = 0; len < text.size() - 1; ++len)
    {
        putSheet(text.substr(0, len));
        EXPECT_EQ(readSheet(file).state, eSheetState::eDamaged) << len;
        EXPECT_EQ(bool(readSheetSummary(file)), len > text.find("interface\"") + std::strlen("interface")) << len;
    }
}

TEST_F(tSheetTest, isNoLinkNoPipeNoFolderAndNothingHuge)
{
    record();
    fs::rename(sheetPath(), dir.file("moved"));
    EXPECT_EQ(readSheet(file).state, eSheetState::eNone);
    fs::create_symlink(dir.file("moved"), sheetPath());
    EXPECT_EQ(readSheet(file).reason, sheetPath() + " is a link");
    fs::remove(sheetPath());
    ASSERT_EQ(::mkfifo(sheetPath().c_str(), 0600), 0);
    EXPECT_EQ(readSheet(file).reason, sheetPath() + " is no regular file");
    fs::remove(sheetPath());
    fs::create_directory(sheetPath());
    EXPECT_EQ(readSheetSummary(file).reason, sheetPath() + " is no regular file");
    EXPECT_THROW(addNote(file, {cTime, "no place"}), tFailure);
    fs::remove(sheetPath());
    fs::copy(dir.file("moved"), sheetPath());
    fs::resize_file(sheetPath(), 100'000'000);
    EXPECT_NE(readSheet(file).reason.find("larger than a sheet can be"), std::string::npos);
    EXPECT_EQ(readSheetSummary(file).state, eSheetState::eDamaged);
}

TEST_F(tSheetTest, hasTheChecksumsOfEverySecondAndMegabyte)
{
    segments = {{cTime, std::string(400'000, 'a')},
                {cTime + 1, std::string(400'000, 'b')},
                {cTime + 2, std::string(400'000, 'c')},
                {cTime + 3, std::string(3'000'000, 'd')},
                {cTime + 4, "e"},
                {cTime + 800, "f"},
                {cTime + 900, "g"},
                {cTime - 3'600'000, "h"}};
    const tSheetBlocks blocks = built().blocks;
    EXPECT_EQ(blocks.records, (std::vector<std::uint32_t>{2, 1, 1, 1, 2, 1}));
    EXPECT_EQ(blocks.payloadCrc32c[0], crcOf(segments[0].bytes + segments[1].bytes));
    EXPECT_EQ(blocks.payloadCrc32c[4], crcOf("fg"));
    EXPECT_EQ(blocks.indexCrc32c[4],
              crcOf(indexRecord(cTime + 800, 14'200'001, 1) + indexRecord(cTime + 900, 14'200'002, 1)));
    EXPECT_EQ(crcOf("123456789"), 0xE3069283u);
    segments.assign(200, {cTime, "x"});
    EXPECT_EQ(built().blocks.records, std::vector<std::uint32_t>{200});
    EXPECT_EQ(built().fineCrc32c, [&] {
        std::string fine;
        for (const tSegment& segment : segments)
            fine += littleEndian(segment.time % 1000, 2);
        return crcOf(fine);
    }());
}

TEST_F(tSheetTest, saysTheSameOfSegmentsThatLieBackToBack)
{
    std::string payload;
    for (std::size_t i = 0; i < 5000; ++i)
        segments.push_back({cTime + i / 2, numberedSegment(i, 9 + i * 37 % 900)});
    for (const tSegment& segment : segments)
        payload += segment.bytes;
    std::vector<storage::tWrittenSegment> written;
    std::uint64_t offset = 0;
    for (const tSegment& segment : segments)
    {
        const bool apart = written.size() % 100 == 99;
        written.push_back({apart ? segment.bytes.data() : payload.data() + offset,
                           static_cast<std::uint32_t>(segment.bytes.size()), segment.time,
                           static_cast<std::uint16_t>(segment.time % 1000), 10'000'000 + offset});
        offset += segment.bytes.size();
    }
    tSheetBuilder together;
    together.addWritten(written.data(), 1000);
    together.addWritten(written.data() + 1000, written.size() - 1000);
    tSheet filled;
    together.fill(filled);
    EXPECT_GE(filled.blocks.records.size(), 3u);
    EXPECT_EQ(sheetText(filled), sheetText(built()));
}

TEST_F(tSheetTest, countsEachStreamBySecondsWhateverTheClockDoes)
{
    for (const std::uint64_t second : {100u, 101u, 101u, 4000u, 99u, 101u, 5u})
        segments.push_back({second * 1000 + 1, makePackage(0, "m")});
    for (std::uint64_t i = 0; i < 20'000; ++i)  // two clocks
        segments.push_back({i % 2 == 0 ? 7000 : 9'000'000 + i, "raw"});
    const tSheet built = this->built();
    ASSERT_EQ(built.streams.size(), 2u);
    const tSheetStream& raw = built.streams[0];
    EXPECT_EQ(raw.key.name(), "raw");
    EXPECT_EQ(raw.perSecond.front(), (std::pair<std::uint64_t, std::uint32_t>(7, 10'000)));
    EXPECT_EQ(raw.perSecond.size(), 21u);
    const tSheetStream& packages = built.streams[1];
    EXPECT_EQ(packages.perSecond, (tPerSecond{{5, 1}, {99, 1}, {100, 1}, {101, 3}, {4000, 1}}));
    EXPECT_EQ(packages.longestSilenceMs, 3'899'000u);
    EXPECT_EQ(packages.gaps.size(), 2u);
    EXPECT_EQ(packages.firstMs, 5001u);
    EXPECT_EQ(packages.lastMs, 4'000'001u);
    EXPECT_EQ(packages.bytes, 7u);
    tDigest digest;
    for (int i = 0; i < 7; ++i)
        digest.add("m");
    EXPECT_EQ(packages.digest.hash, digest.hash);
}

TEST_F(tSheetTest, keepsAllButFormAndIndexWhenItsFileIsCompressed)
{
    record("a.data", 50);
    addNote(file, {cTime, "before"});
    std::string compressed, error;
    ASSERT_TRUE(storage::tDataFileConverter::Compress(file, ".data", nullptr, &compressed, &error)) << error;
    ASSERT_TRUE(readSheet(compressed)) << readSheet(compressed).reason;
    refreshSheet(compressed);
    const tFoundSheet found = readSheet(compressed);
    ASSERT_TRUE(found) << found.reason;
    EXPECT_EQ(found.sheet.form, storage::cHuffmanFileHead);
    EXPECT_EQ(found.sheet.notes.size(), 1u);
    EXPECT_EQ(found.sheet.blocks.payloadCrc32c, sheet.blocks.payloadCrc32c);
    EXPECT_EQ(found.sheet.headCrc32c, crcOf(bytesOf(compressed, 0, 2048)));
    EXPECT_EQ(found.sheet.blocks.indexCrc32c[1], crcOf(bytesOf(compressed, 2048 + 21 * 2, 21 * 2)));
    std::string expanded;
    ASSERT_TRUE(storage::tDataFileConverter::Expand(compressed, ".data", nullptr, &expanded, &error)) << error;
    refreshSheet(expanded);
    sheet.notes = found.sheet.notes;
    sheet.headCrc32c = crcOf(bytesOf(expanded, 0, 2048));  // which has the longest segment's length now
    EXPECT_EQ(sheetText(readSheet(expanded).sheet), sheetText(sheet));
}

TEST_F(tSheetTest, givesAFileWithoutASheetOneForNotesAlone)
{
    recordByHand(dir.file("a.data"), {{cTime, "one"}});
    file = dir.file("a.data");
    addNote(file, {cTime, "first"});
    setKept(file, true);
    addNote(file, {cTime + 1, "second"});
    const tFoundSheet found = readSheet(file);
    ASSERT_TRUE(found) << found.reason;
    EXPECT_TRUE(found.sheet.notesOnly && found.sheet.kept);
    EXPECT_EQ(found.sheet.notes.size(), 2u);
    EXPECT_EQ(found.sheet.first->timeMs, cTime);
    EXPECT_TRUE(readSheetSummary(file).notesOnly);
    setKept(file, false);
    EXPECT_FALSE(readSheetSummary(file).kept);
    EXPECT_THROW(addNote(dir.file("none.data"), {}), tFailure);
    EXPECT_FALSE(fs::exists(dir.file("none.json")));
    std::string later = contentsOf(sheetPath());
    later.replace(later.find("/1\""), 3, "/3\"");
    putSheet(later);
    EXPECT_THROW(addNote(file, {}), tFailure);
    EXPECT_EQ(contentsOf(sheetPath()), later);
}

TEST_F(tSheetTest, staysAsItIsIfItCannotBeWritten)
{
    record();
    const std::string before = contentsOf(sheetPath());
    {
        const tPwriteHook full(tPwriteHook::noRoom(100, 1 << 30));
        EXPECT_THROW(addNote(file, {cTime, "lost"}), tFailure);
    }
    EXPECT_EQ(contentsOf(sheetPath()), before);
    EXPECT_TRUE(isTidy());
}

// Every change is there or not, and none takes another away.
TEST_F(tSheetTest, isWholeWheneverAProcessThatWritesItIsKilled)
{
    record();
    constexpr int cRounds = 40, cMostRounds = 400;  // more of them, and longer ones, where a write takes long
    for (int round = 0; round < cRounds || (round < cMostRounds && readSheet(file).sheet.notes.empty()); ++round)
    {
        const std::size_t before = readSheet(file).sheet.notes.size();
        const pid_t child = ::fork();
        if (child == 0)
            for (;;)
                addNote(file, {cTime, std::string(2000, 'n')});
        std::this_thread::sleep_for(std::chrono::microseconds(300 + 397 * round));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        const tFoundSheet found = readSheet(file);
        ASSERT_TRUE(found) << found.reason;
        ASSERT_GE(found.sheet.notes.size(), before);
    }
    const std::size_t before = readSheet(file).sheet.notes.size();
    EXPECT_GT(before, 0u);
    addNote(file, {cTime, "after"});
    EXPECT_EQ(readSheet(file).sheet.notes.size(), before + 1);
    EXPECT_TRUE(isTidy());
}
