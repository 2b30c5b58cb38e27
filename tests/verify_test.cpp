// Verifying: every kind of damage is found and placed, and nothing else is.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/crc32c.h"
#include "KestovaRecordings/internal/flippedbit.h"
#include "KestovaRecordings/verify.h"
#include "KestovaStorage/companions.h"
#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/huffmanhead.h"
#include "support/sheetedrecording.h"
#include "support/tempdir.h"

namespace
{
using namespace recordings;

class tVerifyTest : public testing::Test
{
protected:
    tVerifiedFile verify(bool quick = false, const std::string& name = "r.data") const
    {
        const tVerification all = verifyRecordings({dir.file(name)}, {".data", quick, 3}, [](auto&) { return true; });
        EXPECT_EQ(all.files.size(), 1u);
        return all.files.at(0);
    }
    static bool finds(const tVerifiedFile& file, const std::string& kind, std::uint64_t record)
    {
        return std::ranges::any_of(
            file.findings, [&](const tFinding& finding) { return finding.kind == kind && finding.record == record; });
    }
    // Flips a bit of each byte from `begin` to `end`; each must be found within the second of `timeOf`, if that is
    // known.
    template <typename tTimeOf>
    void flipEach(const std::string& name, std::uint64_t begin, std::uint64_t end, tTimeOf timeOf)
    {
        const std::string file = dir.file(name);
        for (std::uint64_t byte = begin; byte < end; ++byte)
        {
            SCOPED_TRACE(byte);
            flipBit(file, byte, byte % 8);
            const tVerifiedFile verified = verify(false, name);
            flipBit(file, byte, byte % 8);
            ASSERT_EQ(verified.state, eFileState::eDamaged);
            ASSERT_TRUE(verified.hasSheet);
            const std::uint64_t second = timeOf(byte) / 1000;
            ASSERT_TRUE(second == 0 || std::ranges::any_of(verified.findings, [&](const tFinding& finding) {
                            return finding.damage && finding.timeMs.value_or(0) / 1000 == second;
                        }));
        }
        EXPECT_EQ(verify(false, name).state, eFileState::eSound);
    }

    tTempDir dir;
    const std::string path = dir.file("r.data");
};

constexpr auto cAnyTime = [](std::uint64_t) { return std::uint64_t{0}; };
constexpr std::uint64_t cSlot = storage::cIndexSlotSize, cIndex = storage::cIndexPos, cPayload = storage::cPayloadPos;
}  // namespace

TEST(tFlippedBitTest, findsTheOneBitOfAChecksum)
{
    std::string bytes = numberedSegment(1, 5000);
    const std::uint32_t right = crc32c(0, bytes.data(), bytes.size());
    for (const std::uint64_t bit : {0u, 7u, 8u, 12'345u, 39'999u})
    {
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
        EXPECT_EQ(flippedBit(right ^ crc32c(0, bytes.data(), bytes.size()), bytes.size()), bit);
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
    }
    EXPECT_EQ(flippedBit(0, 5000), std::nullopt);
    bytes[100] = static_cast<char>(bytes[100] ^ 3);
    EXPECT_EQ(flippedBit(right ^ crc32c(0, bytes.data(), bytes.size()), bytes.size()), std::nullopt);
}

TEST_F(tVerifyTest, findsAFlippedBitInEveryByteOfAPlainFileWithASheet)
{
    const tSegments segments = packagesOf(14);
    recordWithSheet(path, segments);
    EXPECT_TRUE(verify().findings.empty());
    flipEach("r.data", 0, 4, cAnyTime);
    flipEach("r.data", 2000, 2008, cAnyTime);
    flipEach("r.data", cIndex, cIndex + segments.size() * cSlot,
             [&](std::uint64_t byte) { return segments[(byte - cIndex) / cSlot].time; });
    std::vector<std::uint64_t> times;
    for (const tSegment& segment : segments)
        times.insert(times.end(), segment.bytes.size(), segment.time);
    flipEach("r.data", cPayload, cPayload + times.size(), [&](std::uint64_t byte) { return times[byte - cPayload]; });
}

TEST_F(tVerifyTest, findsAFlippedBitInEveryByteOfACompressedFileWithASheet)
{
    const tSegments segments = packagesOf(10);
    recordWithSheet(path, segments);
    const std::string packed = compressWithSheet(path);
    EXPECT_TRUE(verify(false, "r.tar.data").findings.empty());
    flipEach("r.tar.data", 0, sizeof(huffman::tFileHead), cAnyTime);
    flipEach("r.tar.data", 2000, 2008, cAnyTime);
    flipEach("r.tar.data", cIndex, cIndex + segments.size() * cSlot,
             [&](std::uint64_t byte) { return segments[(byte - cIndex) / cSlot].time; });
    flipEach("r.tar.data", cPayload, std::filesystem::file_size(packed), cAnyTime);
}

TEST_F(tVerifyTest, findsNothingInCompressedFilesThatEndWithAnyBit)
{
    for (std::size_t count = 8; count < 24; ++count)
    {
        recordWithSheet(path, packagesOf(count));
        const std::string packed = compressWithSheet(path);
        EXPECT_TRUE(verify(false, "r.tar.data").findings.empty()) << count;
        std::filesystem::remove(packed);
    }
}

TEST_F(tVerifyTest, findsWithoutASheetWhatContradictsItself)
{
    const tSegments segments = packagesOf(6);
    const std::size_t first = segments[0].bytes.size();
    const struct
    {
        const char* kind;
        std::uint64_t byte, record;
        unsigned bit;
    } cases[] = {{"size", cIndex + 2 * cSlot + 15, 2, 6},   {"place", cIndex + 2 * cSlot + 8, 2, 2},
                 {"overlap", cIndex + 2 * cSlot + 8, 2, 0}, {"place", cIndex + 2 * cSlot + 16, 2, 0},
                 {"index", cIndex + 3 * cSlot + 7, 3, 0},   {"index", cIndex + 1 * cSlot + 20, 1, 3},
                 {"package", cPayload + 3, 0, 1},           {"package", cPayload + first - 1, 0, 1},
                 {"package", cPayload + 31, 0, 1}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.byte);
        std::filesystem::remove(path);
        recordByHand(path, segments);
        EXPECT_EQ(verify().state, eFileState::eSound);
        flipBit(path, c.byte, c.bit);
        const tVerifiedFile file = verify();
        EXPECT_EQ(file.state, eFileState::eDamaged);
        EXPECT_TRUE(finds(file, c.kind, c.record)) << file.findings.at(0).kind << file.findings.at(0).detail;
    }
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 1);
    EXPECT_TRUE(finds(verify(), "size", 6));
    EXPECT_EQ(verify(true).state, eFileState::eDamaged) << "the index is enough";
    std::filesystem::remove(path);
    for (const std::uint32_t counted : {6u, 8u})
    {
        recordByHand(path, segments);
        putBytes(path, 2000, indexHead(counted));
        EXPECT_EQ(verify().findings.at(0).kind, "index_head") << counted;
        EXPECT_EQ(verify().records, 7u) << counted;
    }
}

TEST_F(tVerifyTest, takesForDamageNothingThatIsNone)
{
    tSegments segments = packagesOf(6);
    segments[3].time -= 100'000;
    segments.erase(segments.begin() + 1);
    segments.push_back({segments.back().time, segments[0].bytes + segments[2].bytes});  // of a byte stream
    segments.push_back({segments.back().time, makePackage(9, std::string(70'000, 'x'), eReadType, 70'000 & 0xFFFF)});
    recordWithSheet(path, segments);
    tVerifiedFile file = verify();
    EXPECT_EQ(file.state, eFileState::eSound);
    EXPECT_TRUE(finds(file, "time", 2));
    EXPECT_TRUE(finds(file, "sequence", 1)) << "package 1 is missing";
    writeSheetOf(path, segments.size(), true, true);
    EXPECT_FALSE(finds(verify(), "sequence", 1)) << "of a cut recording nothing is known to be missing";
    recordWithSheet(dir.file("other.data"), packagesOf(3, 1'600'000'000'000));
    std::filesystem::copy_file(dir.file("other.json"), dir.file("r.json"),
                               std::filesystem::copy_options::overwrite_existing);
    file = verify();
    EXPECT_EQ(file.state, eFileState::eSound);
    EXPECT_EQ(file.findings.at(0).kind, "sheet");
    EXPECT_FALSE(file.hasSheet);
}

TEST_F(tVerifyTest, findsWhatTheSheetKnowsAlone)
{
    const tSegments segments = packagesOf(12);
    recordWithSheet(path, segments);
    flipBit(path, cPayload + 40, 2);
    EXPECT_EQ(verify(true).state, eFileState::eSound) << "the segments are not read";
    const tVerifiedFile file = verify();
    ASSERT_TRUE(finds(file, "payload", 0));
    EXPECT_EQ(file.findings.at(0).offset, cPayload + 40);
    EXPECT_NE(file.findings.at(0).detail.find("bit 2"), std::string::npos);
    flipBit(path, cPayload + 40, 2);
    putBytes(path, 2000, indexHead(0));
    putBytes(path, cIndex + 8 * cSlot, std::string(5 * cSlot, '\0'));
    EXPECT_EQ(verify().state, eFileState::eDamaged) << "unfinished without a sheet, but five records are gone";
    std::filesystem::remove(dir.file("r.json"));
    EXPECT_EQ(verify().state, eFileState::eUnfinished);
    std::filesystem::remove(path);
    recordWithSheet(path, segments);
    recordings::tSheet sheet = readSheet(path).sheet;
    sheet.streams.at(0).digest.hash ^= 1;
    writeSheet(path, sheet);
    EXPECT_EQ(verify().findings.at(0).kind, "digest");
}

TEST_F(tVerifyTest, findsNoDamageInARecordingThatIsBeingWritten)
{
    constexpr int cReadings = 20;
    storage::tDataStorageIO recorder("", ".data");
    ASSERT_TRUE(recorder.CreateNewWritingFile(dir.file("live") + "/", "live", false));
    std::atomic<bool> recording{true};
    std::thread writer([&] {
        for (std::uint32_t i = 0; recording; ++i)
        {
            const std::string package = makePackage(i, numberedSegment(i, 40), eReadType);
            recorder.WriteData(package.data(), package.size(), 1'715'940'000'250 + i);
            if (i % 4 == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    for (int i = 0; i < cReadings; ++i)
    {
        const tVerification all = verifyRecordings({dir.file("live")}, {}, [](auto&) { return true; });
        ASSERT_EQ(all.recording, 1u);
        EXPECT_TRUE(all.files.at(0).findings.empty()) << all.files.at(0).findings.at(0).detail;
    }
    recording = false;
    writer.join();
    EXPECT_TRUE(recorder.WaitWriteIdle(10'000));
    recorder.FinishWrite();
    EXPECT_EQ(verifyRecordings({dir.file("live")}, {}, [](auto&) { return true; }).sound, 1u);
}

TEST_F(tVerifyTest, isCancelledAndRefusesWhatIsNoRecording)
{
    recordWithSheet(path, packagesOf(5));
    EXPECT_FALSE(verifyRecordings({path}, {}, [](const auto& at) { return at.bytes == 0; }).complete);
    putBytes(dir.file("x.data"), 0, "text");
    EXPECT_THROW(verifyRecordings({dir.file("x.data")}, {}, [](auto&) { return true; }), tFailure);
    EXPECT_EQ(verifyRecordings({dir.string()}, {}, [](auto&) { return true; }).leftOut.size(), 1u);
}
