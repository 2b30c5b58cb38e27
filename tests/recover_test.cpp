// Recovering: what a crash left is finished in place, and of what is damaged every whole record is saved.
#include <algorithm>
#include <filesystem>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/recover.h"
#include "support/sheetedrecording.h"
#include "support/tempdir.h"

namespace
{
using namespace recordings;
namespace fs = std::filesystem;

class tRecoverTest : public testing::Test
{
protected:
    tRecoveries recover(const std::string& folder = "") const
    {
        return recoverRecordings({path}, {".data", folder, 2}, [](auto&) { return true; });
    }
    eFileState state(const std::string& file) const
    {
        return verifyRecordings({file}, {}, [](auto&) { return true; }).files.at(0).state;
    }
    // The segments without those of the given numbers.
    static tSegments without(tSegments segments, std::initializer_list<std::size_t> numbers)
    {
        for (auto i = std::rbegin(numbers); i != std::rend(numbers); ++i)
            segments.erase(segments.begin() + static_cast<std::ptrdiff_t>(*i));
        return segments;
    }

    tTempDir dir;
    const std::string path = dir.file("r.data"), to = dir.file("saved");
    const tSegments segments = packagesOf(13);
};
}  // namespace

TEST_F(tRecoverTest, finishesAnUnfinishedFileByItsIndexHeadAndItsSheet)
{
    recordByHand(path, segments, false);
    const std::string before = bytesOf(path, 2008, 9'998'700);
    writeSheetOf(path, 5, false);
    recordings::addNote(path, {1, "engine off"});
    ASSERT_EQ(state(path), eFileState::eUnfinished);
    const tRecoveries recoveries = recover(to);
    EXPECT_EQ(recoveries.files.at(0).recovery, eRecovery::eFinished);
    EXPECT_EQ(recoveries.kept, segments.size());
    EXPECT_EQ(recoveries.recordsLeftOut, 0u);
    EXPECT_EQ(bytesOf(path, 2000, 8), indexHead(14, 63));
    EXPECT_EQ(bytesOf(path, 2008, 9'998'700), before);
    EXPECT_FALSE(fs::exists(to));
    const tSheet sheet = readSheet(path).sheet;
    EXPECT_TRUE(sheet.finished);
    EXPECT_EQ(sheet.records, segments.size());
    EXPECT_EQ(sheet.notes.size(), 1u);
    flipBit(path, 10'000'000 + 13 * 60, 1);
    EXPECT_EQ(state(path), eFileState::eDamaged) << "the sheet covers the rest, too";
}

TEST_F(tRecoverTest, savesEveryWholeRecordOfADamagedFile)
{
    constexpr std::uint64_t cSlot = 21;
    const struct
    {
        const char* what;
        bool withSheet, compressed;
        std::uint64_t byte;
        unsigned bit;
        tSegments kept;
    } cases[] = {
        {"payload", true, false, 10'000'000 + 41 + 5, 3, without(segments, {0})},
        {"time of a record", true, false, 2048 + 4 * cSlot, 1, without(segments, {4})},
        {"length of a record", false, false, 2048 + 4 * cSlot + 16, 1, without(segments, {4})},
        {"place of a record", false, false, 2048 + 4 * cSlot + 8, 1, without(segments, {4})},
        {"magic", true, false, 2, 5, segments},
        {"magic of a compressed file", true, true, 2, 5, segments},
        {"head of the codes", true, true, 12, 0, segments},
        {"index head", true, false, 2000, 4, segments},
        {"end mark", false, false, 10'000'000 + 60, 0, without(segments, {0})},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.what);
        for (const char* name : {"r.data", "r.tar.data", "r.json", "saved"})
            fs::remove_all(dir.file(name));
        recordWithSheet(path, segments);
        const std::string file = c.compressed ? compressWithSheet(path) : path;
        if (!c.withSheet)
            fs::remove(dir.file("r.json"));
        flipBit(file, c.byte, c.bit);
        EXPECT_THROW(recoverRecordings({file}, {}, [](auto&) { return true; }), tFailure) << "needs a place";
        const tRecoveries done = recoverRecordings({file}, {".data", to, 2}, [](auto&) { return true; });
        EXPECT_EQ(segmentsBelow(to), c.kept);
        EXPECT_EQ(done.kept, c.kept.size());
        EXPECT_EQ(done.recordsLeftOut, segments.size() - c.kept.size());
        EXPECT_EQ(state(to), eFileState::eSound);
        EXPECT_EQ(state(file), eFileState::eDamaged) << "stays as it is";
    }
}

TEST_F(tRecoverTest, savesWhatIsLeftOfAFileThatWasCut)
{
    recordWithSheet(path, segments);
    fs::resize_file(path, fs::file_size(path) - 50);
    const tRecoveries done = recover(to);
    EXPECT_EQ(segmentsBelow(to), without(segments, {12, 13}));
    EXPECT_EQ(done.recordsLeftOut, 2u);
    EXPECT_TRUE(readSheet(done.files.at(0).result).sheet.cut);
    EXPECT_THROW(recover(to), tFailure) << "it exists";
}

TEST_F(tRecoverTest, refusesAFileThatIsBeingRecorded)
{
    storage::tDataStorageIO recorder("", ".data");
    ASSERT_TRUE(recorder.CreateNewWritingFile(dir.file("live") + "/", "live", false));
    const std::string live = recorder.GetCurrentWriteDataFileName();
    recorder.WriteData("segment", 7, 1);
    ASSERT_TRUE(recorder.WaitWriteIdle(10'000));
    EXPECT_THROW(recoverRecordings({live}, {}, [](auto&) { return true; }), tFailure);
    EXPECT_EQ(bytesOf(live, 2000, 8), indexHead(0));
    recorder.FinishWrite();
    EXPECT_EQ(recoverRecordings({live}, {}, [](auto&) { return true; }).files.at(0).recovery, eRecovery::eNothing);
}

TEST_F(tRecoverTest, leavesNothingOfWhatIsCancelled)
{
    recordWithSheet(path, segments);
    flipBit(path, 10'000'000, 1);
    int calls = 0;
    const tRecoveries done = recoverRecordings({path}, {".data", to, 1}, [&](auto&) { return ++calls < 3; });
    EXPECT_FALSE(done.complete);
    EXPECT_TRUE(done.files.empty());
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.string()), {}), 2) << "file and sheet";
}
