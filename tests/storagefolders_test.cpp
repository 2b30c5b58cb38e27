// What storage does to folders and disks: listing, making, measuring, and deleting the oldest files of a full one.
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "KestovaStorage/internal/disk/diskreclaimer.h"
#include "KestovaStorage/internal/disk/diskspace.h"
#include "KestovaStorage/internal/disk/paths.h"
#include "KestovaStorage/internal/recording/filerecorder.h"
#include "support/ownnamespace.h"
#include "support/recordedsegments.h"
#include "support/tempdir.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;
using namespace storage;

namespace
{
using tNames = std::set<std::string>;

class tPathUtilsTest : public testing::Test
{
protected:
    std::string touch(const std::string& name, const std::string& bytes = "x") const
    {
        std::filesystem::create_directories(std::filesystem::path(dir.file(name)).parent_path());
        std::ofstream(dir.file(name)) << bytes;
        return dir.file(name);
    }
    void link(const char* target, const char* name) const { std::filesystem::create_symlink(target, dir.file(name)); }
    // What the listing of the test's folder finds, without the folder's own path.
    tNames listed(bool recursive, const std::string& suffix) const
    {
        tNames found, names;
        paths::listFolder(dir.string(), found, recursive, suffix, paths::eLinks::eFollow);
        for (const std::string& path : found)
            names.insert(inside(path));
        return names;
    }
    std::string inside(const std::string& path) const { return path.substr(dir.string().size() + 1); }

    tTempDir dir;
};
}  // namespace

TEST_F(tPathUtilsTest, listsFilesByTheTextFromTheirLastDotAndDescendsOnlyWhereAsked)
{
    for (const char* name : {".data", "a.tar.data", "c.data.tmp", "d.DATA", "noDot", "edata", "1.data", "b/2.data",
                             "b/c/3.data", "b/System Volume Information/4.data", "b/x.y/noDot", "f.data/x"})
        touch(name);
    EXPECT_EQ(listed(false, ".data"), (tNames{".data", "1.data", "a.tar.data"}));
    EXPECT_EQ(listed(false, ".tar.data"), tNames{});
    EXPECT_EQ(listed(false, ""), (tNames{"b", "f.data"}));
    EXPECT_EQ(listed(true, ".data"), (tNames{".data", "1.data", "a.tar.data", "b/2.data", "b/c/3.data"}));
    EXPECT_EQ(listed(true, ""), (tNames{"b", "b/c", "b/x.y", "b/System Volume Information", "f.data"}));
}

TEST_F(tPathUtilsTest, makesEveryFolderThatEndsWithASlashAndSaysWhichCannotBeListedOrMade)
{
    EXPECT_FALSE(paths::makeFolders(""));
    EXPECT_TRUE(paths::makeFolders(dir.file("a/b//c/")));
    struct stat info;
    ASSERT_EQ(::stat(dir.file("a/b").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    EXPECT_FALSE(paths::makeFolders(dir.file("a/d/e")));
    EXPECT_TRUE(paths::exists(dir.file("a/d")) && !paths::exists(dir.file("a/d/e")));
    tNames found;
    touch("file");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    paths::listFolder(dir.file("none"), found, true, ".data");
    EXPECT_FALSE(paths::makeFolders(dir.file("file/below/and/further/")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to create directory.: Not a directory\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "GetFileFolderInDir: open " + dir.file("none/") + " error No such file or directory\n");
    EXPECT_TRUE(found.empty());
}

TEST_F(tPathUtilsTest, writesPathsInOneWayAndTellsFilesFromFolders)
{
    const std::string base = std::filesystem::current_path().string() + "/";
    for (const auto& [path, wanted] :
         {std::pair("", ""), {"a", "a/"}, {"a/", "a/"}, {"\\", "/"}, {"C:\\x\\y", "C:/x/y/"}})
    {
        std::string normal = path;
        paths::normalize(normal);
        EXPECT_EQ(normal, wanted);
    }
    for (const auto& [path, wanted] :
         {std::pair("x", base + "x"), {"./x/", base + "x/"}, {"/x", "/x"}, {"C:x", "C:x"}, {"", base}})
    {
        std::string absolute = path;
        paths::makeAbsolute(absolute);
        EXPECT_EQ(absolute, wanted);
    }
    const std::string file = touch("f", "12345"), none = dir.file("none");
    EXPECT_EQ(paths::kindOf(file), paths::ePathKind::eFile);
    EXPECT_EQ(paths::kindOf(dir.string()), paths::ePathKind::eFolder);
    EXPECT_EQ(paths::kindOf(none), paths::ePathKind::eNone);
    EXPECT_EQ(paths::fileSize(file.c_str()), 5);
    EXPECT_EQ(paths::fileSize(none.c_str()), 0);
}

TEST_F(tPathUtilsTest, wrapsDiskSizesFromTwoTebibytesOn)
{
    constexpr std::uint64_t cTebibyte = 1ull << 28;       // in blocks of 4096 bytes
    using tSize = std::pair<std::int32_t, std::int32_t>;  // total and free
    const std::tuple<std::uint64_t, std::uint64_t, std::uint64_t, tSize> cases[] = {
        {4096, cTebibyte, 261888, {1 << 20, 1023}},
        {4096, 2 * cTebibyte - 1, 262144, {(2 << 20) - 1, 1024}},
        {4096, 2 * cTebibyte, 2 * cTebibyte, {-(2 << 20), -(2 << 20)}},
        {4096, 5 * cTebibyte, 4 * cTebibyte + 128000, {1 << 20, 500}},
        {512, 4 * 1024 * 1024, 2 * 1024 * 1024, {2048, 1024}},
        {512, 1023, 0, {0, 0}},
        {65536, 1 << 20, 16, {65536, 1}}};
    for (const auto& [blockSize, blocks, available, expected] : cases)
    {
        const disk::tSize_MB size = disk::wrappedSize(blockSize, blocks, available);
        EXPECT_EQ(tSize(size.total, size.free), expected) << blocks;
    }
}

TEST_F(tPathUtilsTest, callsADiskLowBelowAGibibyteByBothFigures)
{
    EXPECT_TRUE(disk::isLow(1, 1) && disk::isLow(1023, 1023));
    EXPECT_FALSE(disk::isLow(1024, 1024));
    EXPECT_FALSE(disk::isLow(500, (4 << 20) + 500));  // wrapped
    EXPECT_FALSE(disk::isLow(0, 0) || disk::isLow(-1, -1));
}

TEST_F(tPathUtilsTest, measuresADiskAndSaysSo)
{
    testing::internal::CaptureStdout();
    const std::int32_t free = disk::freeSize_MB(dir.string().c_str());
    EXPECT_EQ(disk::freeSize_MB(dir.file("none").c_str()), -1);
    EXPECT_EQ(disk::trueFreeSize_MB(dir.file("none").c_str()), -1);
    const std::string said = testing::internal::GetCapturedStdout();
    EXPECT_EQ(said.rfind("Disk Total Size: ", 0), 0u);
    const std::string end = "MB, Free Size: " + std::to_string(free) + "MB\r\n";
    EXPECT_EQ(said.find(end), said.size() - end.size());
    EXPECT_EQ(disk::mountSize("/no such mount/"), 0);
    EXPECT_EQ(disk::mountSize(""), 0);
    if (std::system("df -P -l / >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "df is missing or shows no local disk at /";
    struct statvfs info;
    ASSERT_EQ(::statvfs("/", &info), 0);
    EXPECT_EQ(disk::mountSize("/"), static_cast<std::int64_t>(info.f_blocks * info.f_frsize / 1024));
}

namespace
{
class tDiskReclaimerTest : public tPathUtilsTest
{
protected:
    void SetUp() override
    {
        touch("above stays");
        reclaimer.addRoot(this, root);
    }
    // Files that a disk has too little room for; each look at the disk finds one less.
    void passWithTooMany(int files)
    {
        tooMany = files;
        reclaimer.pass();
    }
    tNames left() const
    {
        tNames names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(dir.path()))
            names.insert(inside(entry.path()));
        EXPECT_EQ(names.erase("above stays"), 1u);
        return names;
    }

    const std::string root = dir.file("a/root/");
    int tooMany = 0;
    std::vector<std::string> looked;
    tDiskReclaimer reclaimer{[this](const std::string& path) {
        looked.push_back(path);
        return tooMany-- > 0;
    }};
};
}  // namespace

TEST_F(tDiskReclaimerTest, deletesTheOldestDataFilesUntilThereIsRoomAndEmptiedFoldersEvenAboveTheRoot)
{
    for (const char* name : {"1/0000.data", "1/0001.tar.data", "0/0009.data", "0/notes.txt", "2/0000.data"})
        touch("a/root/Data_00000" + std::string(name));
    passWithTooMany(0);
    EXPECT_EQ(left().size(), 10u);
    passWithTooMany(3);
    const std::string kept = "a/root/Data_000000";
    EXPECT_EQ(left(),
              (tNames{"a", "a/root", kept, kept + "/notes.txt", "a/root/Data_000002", "a/root/Data_000002/0000.data"}));
    EXPECT_EQ(looked, (std::vector<std::string>(5, root)));
    std::filesystem::remove_all(dir.file(kept));
    passWithTooMany(100);
    EXPECT_EQ(left(), tNames{});
}

TEST_F(tDiskReclaimerTest, passesOverKeptFilesAndFilesOfOtherRecordersAndTakesCompanionsAlong)
{
    for (const char* name : {"1.data", "1.fine", "2.tar.data", "2.json", "2.fine", "4.data"})
        touch("a/root/" + std::string(name));
    touch("a/root/1.json", R"({"schema":"kestova/recording/1","kept":true})");
    const auto recording = tDataFileWriter::create(dir.file("a/root/3.data"));  // of another object, or process
    passWithTooMany(100);
    EXPECT_EQ(left(), (tNames{"a", "a/root", "a/root/1.data", "a/root/1.fine", "a/root/1.json", "a/root/3.data"}));
}

TEST_F(tDiskReclaimerTest, reportsEachFileThatItDeletesWithTheBytesThatItTakesOnTheDisk)
{
    struct : iReclaimObserver
    {
        void UpdateReclaimed(const std::string& path, std::uint64_t bytes) override
        {
            reports.emplace_back(path, bytes);
        }
        std::vector<std::pair<std::string, std::uint64_t>> reports;
    } observer;
    for (const char* name : {"a/root/1.data", "a/root/2.data", "a/root/3.data"})
        std::filesystem::resize_file(touch(name, std::string(8192, 'x')), 1 << 20);  // the rest is a hole
    reclaimer.setObserver(&observer);
    passWithTooMany(2);
    reclaimer.setObserver(nullptr);
    passWithTooMany(1);
    EXPECT_EQ(observer.reports, (decltype(observer.reports){{root + "1.data", 8192}, {root + "2.data", 8192}}));
}

TEST_F(tDiskReclaimerTest, deletesNothingWhileTheOldestFileIsBeingWritten)
{
    touch("a/root/1.data");
    touch("a/root/2.data");
    link("a/root", "link");
    for (const char* spelling : {"a/root/1.data", "a//root/./1.data", "link/1.data"})
    {
        SCOPED_TRACE(spelling);
        tDiskReclaimer::tWritingMark mark(reclaimer, dir.file(spelling));
        tDiskReclaimer::tWritingMark moved(std::move(mark));
        const tDiskReclaimer::tWritingMark again(reclaimer, dir.file("a/root/2.data"));
        passWithTooMany(100);
        EXPECT_EQ(left().size(), 5u);
    }
    passWithTooMany(1);
    EXPECT_EQ(left(), (tNames{"a", "a/root", "a/root/2.data", "link"}));
}

TEST_F(tDiskReclaimerTest, leavesTheFileThatIsBeingRecorded)
{
    reclaimer.removeRoot(this);
    tFileRecorder recorder(root, ".data", reclaimer);  // names its root itself
    ASSERT_TRUE(recorder.createNewWritingFile("", 1715934600000, "", false));
    const std::string path = recorder.currentFileName();
    passWithTooMany(100);
    EXPECT_TRUE(paths::exists(path));
    recorder.finishWrite();
    passWithTooMany(100);
    EXPECT_FALSE(paths::exists(path));
}

TEST_F(tDiskReclaimerTest, staysBelowTheRootWhateverLinksSayAndLeavesALinkThatIsTheRoot)
{
    for (const char* name :
         {"elsewhere/0000.data", "elsewhere/0001.data", "a/root/9.data", "disk/0.data", "disk/n.txt"})
        touch(name);
    link("../../elsewhere", "a/root/0");
    link("../../elsewhere/0001.data", "a/root/1.data");
    link("disk", "linked");
    passWithTooMany(100);
    reclaimer.addRoot(this, dir.file("linked/"));
    passWithTooMany(100);
    EXPECT_EQ(left(), (tNames{"a", "a/root", "a/root/0", "disk", "disk/n.txt", "elsewhere", "elsewhere/0000.data",
                              "elsewhere/0001.data", "linked"}));
}

TEST_F(tDiskReclaimerTest, endsThePassAtAFileThatCannotBeDeleted)
{
    touch("a/root/1.data");
    touch("a/root/2.data");
    std::filesystem::permissions(dir.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(root, std::filesystem::perms(0555));
    const bool isRoot = ::geteuid() == 0;
    ASSERT_TRUE(!isRoot || ::seteuid(65534) == 0);
    testing::internal::CaptureStderr();
    passWithTooMany(100);
    ASSERT_TRUE(!isRoot || ::seteuid(0) == 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), root + "1.data: Permission denied\n");
    std::filesystem::permissions(root, std::filesystem::perms(0755));
    EXPECT_EQ(left().size(), 4u);
    EXPECT_LE(looked.size(), 5u);
}

TEST_F(tDiskReclaimerTest, looksAtOneRootAPassInTurn)
{
    reclaimer.removeRoot(this);
    reclaimer.pass();
    EXPECT_TRUE(looked.empty());
    const char owners[3] = {};
    for (const char& owner : owners)
        reclaimer.addRoot(&owner, "/" + std::to_string(&owner - owners));
    for (int i = 0; i < 4; ++i)
        reclaimer.pass();
    reclaimer.removeRoot(&owners[1]);  // the one visited last
    reclaimer.pass();
    reclaimer.addRoot(&owners[1], "relative/");  // begins anew behind the first
    reclaimer.pass();
    const std::string relative = std::filesystem::current_path().string() + "/relative/";
    EXPECT_EQ(looked, (std::vector<std::string>{"/1", "/2", "/0", "/1", "/2", relative}));
}

using tReclaimedDiskTest = tPathUtilsTest;

// The process's own reclaiming, which is at work until the process ends.
TEST_F(tReclaimedDiskTest, losesItsOldestFilesWhileThatIsEnabled)
{
    if (!tTinyDisk::enter().empty())
        GTEST_SKIP() << tTinyDisk::enter();
    const tTinyDisk low(dir.string(), 100);
    for (int i = 0; i < 3000; ++i)
        touch("root/" + std::to_string(10'000 + i) + ".data", "");
    setReclaiming(false);
    static const tDataStorageIO s_io(dir.file("root"), ".data");
    const auto left = [this] { return listed(true, ".data").size(); };
    EXPECT_FALSE(waitUntil([&] { return left() < 3000; }, 7s));
    setReclaiming(true);
    EXPECT_TRUE(waitUntil([&] { return left() < 2990; }, 20s));
}
