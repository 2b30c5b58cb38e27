// What lies beside a data file and goes with it; the lock of a file that is being written; files made of records.
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "KestovaStorage/companions.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/datafileoutput.h"
#include "KestovaStorage/datastorageio.h"
#include "support/filebytes.h"
#include "support/recordedsegments.h"
#include "support/recording.h"
#include "support/tempdir.h"
#include "support/waituntil.h"

using namespace storage;
using namespace std::chrono_literals;

namespace
{
class tCompanionsTest : public testing::Test
{
protected:
    void SetUp() override { setReclaiming(false); }
    void sheet(const std::string& text) const
    {
        std::filesystem::remove(dir.file("x.json"));
        putBytes(dir.file("x.json"), 0, text);
    }
    std::set<std::string> left() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
            names.insert(entry.path().filename().string());
        return names;
    }

    tTempDir dir;
};
}  // namespace

TEST_F(tCompanionsTest, haveOneNameForBothForms)
{
    const std::pair<const char*, const char*> cases[] = {{"rec.data/0001_x.data", "rec.data/0001_x"},
                                                         {"0001_x.tar.data", "0001_x"},
                                                         {"a.b.qvdata", "a.b"},
                                                         {"d/x.tar.qvdata", "d/x"},
                                                         {".tar.data", ".tar"},
                                                         {"d/.data", "d/.data"},
                                                         {"d.data/none", "d.data/none"},
                                                         {"x.json", "x.json"}};
    for (const auto& [path, stem] : cases)
    {
        EXPECT_EQ(sheetName(path), std::string(stem) + ".json");
        EXPECT_EQ(fineTimesName(path), std::string(stem) + ".fine");
    }
}

TEST_F(tCompanionsTest, areKeptIfTheSheetBeginsSo)
{
    const std::string path = dir.file("x.tar.data"), begin = R"({"schema":"kestova/recording/)";
    EXPECT_FALSE(isKept(path));
    const std::pair<std::string, bool> cases[] = {
        {begin + R"(1","kept":true,"notes_count":0})", true},
        {" {\n \"schema\" : \"kestova/recording/12\",\n\t\"kept\": true", true},
        {begin + R"(1","kept":false,"notes":["kept":true]})", false},
        {begin + R"(1","notes":[{"text":"\"kept\":true"}]})", false},
        {R"({"schema":"other/1","kept":true})", false},
        {R"({"kept":true})", false},
        {begin, false},
        {"", false}};
    for (const auto& [text, kept] : cases)
    {
        sheet(text);
        EXPECT_EQ(isKept(path), kept) << text;
    }
    sheet(cases[0].first);
    std::filesystem::rename(dir.file("x.json"), dir.file("real"));
    std::filesystem::create_symlink(dir.file("real"), dir.file("x.json"));
    EXPECT_FALSE(isKept(path)) << "through a link";
}

TEST_F(tCompanionsTest, goWithTheFileUnlessItsOtherFormIsThere)
{
    for (const char* name : {"x.data", "x.tar.data", "x.json", "x.fine", "y.json"})
        putBytes(dir.file(name), 0, "x");
    EXPECT_FALSE(removeDataFile(dir.file("none.data")));
    EXPECT_TRUE(removeDataFile(dir.file("x.data")));
    EXPECT_EQ(left(), (std::set<std::string>{"x.tar.data", "x.json", "x.fine", "y.json"}));
    EXPECT_TRUE(removeDataFile(dir.file("x.tar.data")));
    EXPECT_EQ(left(), (std::set<std::string>{"y.json"}));
}

TEST_F(tCompanionsTest, isBeingWrittenAsLongAsItsWriterLives)
{
    const pid_t writer = ::fork();
    if (writer == 0)
    {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        tDataStorageIO io("", ".data");
        io.CreateNewWritingFile(dir.file(""), "", false);
        io.WriteData("segment", 7, 1);
        ::pause();
    }
    std::string path, error;
    tDataFile file;
    ASSERT_TRUE(waitUntil([&] {
        path = dataFilesIn(dir.string()).empty() ? "" : *dataFilesIn(dir.string()).begin();
        return !path.empty() && file.open(path) && file.recordCount() == 1;
    }));
    EXPECT_TRUE(isBeingWritten(path));
    EXPECT_FALSE(tDataFileOutput::finishInPlace(path, &error));
    EXPECT_EQ(error, path + ": it is being recorded");
    ::kill(writer, SIGKILL);
    ::waitpid(writer, nullptr, 0);
    EXPECT_FALSE(isBeingWritten(path));
    EXPECT_TRUE(tDataFileOutput::finishInPlace(path, &error)) << error;
    EXPECT_EQ(bytesOf(path, 2000, 8), indexHead(1, 7));

    tDataStorageIO io("", ".data");
    ASSERT_TRUE(io.CreateNewWritingFile(dir.file(""), "", false));
    const std::string own = io.GetCurrentWriteDataFileName();
    EXPECT_TRUE(isBeingWritten(own));
    io.FinishWrite();
    EXPECT_FALSE(isBeingWritten(own));
}

TEST_F(tCompanionsTest, areFinishedInPlaceOnlyIfNothingIsWrong)
{
    const tSegments segments{{1000, "abc"}, {1001, "defgh"}, {1002, "i"}};
    const std::string path = dir.file("x.data");
    std::string error;
    recordByHand(path, segments, false);
    const std::string before = contentsOf(path);
    putBytes(path, 2048 + 21 + 12, "\x01");  // a record behind the end of the file
    EXPECT_FALSE(tDataFileOutput::finishInPlace(path, &error));
    EXPECT_EQ(error, path + ": 1 of its records are damaged");
    putBytes(path, 2048 + 21 + 12, std::string(1, '\0'));
    EXPECT_TRUE(contentsOf(path) == before);
    ASSERT_TRUE(tDataFileOutput::finishInPlace(path, &error)) << error;
    EXPECT_EQ(bytesOf(path, 2000, 8), indexHead(3, 5));
    EXPECT_EQ(segmentsOf(path), segments);
    EXPECT_FALSE(tDataFileOutput::finishInPlace(path, &error));
    EXPECT_EQ(error, path + ": it is finished");
    EXPECT_FALSE(tDataFileOutput::finishInPlace(dir.file("none.data"), &error));
    putBytes(dir.file("bytes.data"), 0, cPlainMagic);
    putBytes(dir.file("bytes.data"), 10'000'000, "segment");
    EXPECT_FALSE(tDataFileOutput::finishInPlace(dir.file("bytes.data"), &error));
}

namespace
{
// Some that copying inside the kernel is worth, and some that it is not.
tSegments longAndShort()
{
    tSegments segments;
    for (std::size_t i = 0; i < 400; ++i)
        segments.push_back({5000 + i, numberedSegment(i, i < 200 ? 1000 : 50)});
    return segments;
}
}  // namespace

TEST_F(tCompanionsTest, areMadeOfStretchesOfOtherFiles)
{
    const tSegments segments = longAndShort();
    recordByHand(dir.file("x.data"), segments);
    recordByHand(dir.file("gaps.data"), {{1, "a"}, {2, "b"}, {3, "c"}});
    putBytes(dir.file("gaps.data"), 2048 + 21 + 8, littleEndian(10'000'002, 8));  // the second one is the third's byte
    std::string error, compressed;
    recordByHand(dir.file("y.data"), segments);
    ASSERT_TRUE(tDataFileConverter::Compress(dir.file("y.data"), ".data", nullptr, &compressed, &error)) << error;
    tDataFile plain, gaps, other;
    ASSERT_TRUE(plain.open(dir.file("x.data")) && gaps.open(dir.file("gaps.data")) && other.open(compressed));

    tSegments expected(segments.begin() + 3, segments.end() - 5);
    expected.insert(expected.end(), {{1, "a"}, {2, "c"}, {3, "c"}});
    for (std::size_t i = 10; i < 390; ++i)
        expected.push_back({segments[i].time - 4000, segments[i].bytes});
    tDataFileOutput output;
    ASSERT_TRUE(output.create(dir.file("out.data"), false)) << output.error();
    EXPECT_TRUE(isBeingWritten(dir.file("out.data")));
    EXPECT_EQ(output.copy(plain, 3, 392, 0), 392u);
    EXPECT_EQ(output.copy(gaps, 0, 3, 0), 3u);
    EXPECT_EQ(output.copy(other, 10, 380, -4000), 380u) << output.error();
    EXPECT_EQ(output.recordCount(), expected.size());
    ASSERT_TRUE(output.finish()) << output.error();
    EXPECT_FALSE(isBeingWritten(dir.file("out.data")));
    EXPECT_EQ(segmentsOf(dir.file("out.data")), expected);
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.fine")));
    EXPECT_EQ(bytesOf(dir.file("out.data"), 2000, 8), indexHead(static_cast<std::uint32_t>(expected.size()), 1000));
}

TEST_F(tCompanionsTest, refuseImpossibleRecordsAndKeepWhatWasWritten)
{
    tDataFileOutput output, second;
    ASSERT_TRUE(output.create(dir.file("x.data"), false));
    EXPECT_FALSE(second.create(dir.file("x.data"), false));
    EXPECT_NE(second.error().find("File exists"), std::string::npos) << second.error();
    EXPECT_TRUE(output.append(1, 0, "a", 1));
    EXPECT_TRUE(output.flush());
    EXPECT_FALSE(output.append(0, 0, "b", 1));
    EXPECT_FALSE(output.append(2, 0, "c", 1)) << "the first failure stays";
    EXPECT_EQ(segmentsOf(dir.file("x.data")), (tSegments{{1, "a"}}));
}
