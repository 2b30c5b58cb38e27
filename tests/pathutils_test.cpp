#include "KestovaStorage/internal/pathutils.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include "KestovaStorage/internal/diskspace.h"
#include "support/tempdir.h"

using namespace storage;
using tNames = std::set<std::string>;

class tPathUtilsTest : public testing::Test
{
protected:
    std::string touch(const std::string& name, const std::string& bytes = "") const
    {
        std::filesystem::create_directories(std::filesystem::path(dir.file(name)).parent_path());
        std::ofstream(dir.file(name)) << bytes;
        return dir.file(name);
    }
    // What the listing of the test's folder finds, without the folder's own path.
    tNames listed(bool recursive, const std::string& suffix, paths::eLinks links = paths::eLinks::eFollow) const
    {
        tNames found;
        tNames names;
        paths::listFolder(dir.string(), found, recursive, suffix, links);
        for (const std::string& path : found)
            names.insert(path.substr(dir.string().size() + 1));
        return names;
    }

    tTempDir dir;
};

TEST_F(tPathUtilsTest, listsFilesByTheTextFromTheirLastDot)
{
    for (const char* name :
         {"b.data", "a.tar.data", ".data", "c.data.tmp", "d.DATA", "noDot", "edata", "folder.data/x"})
        touch(name);
    EXPECT_EQ(listed(false, ".data"), (tNames{".data", "a.tar.data", "b.data"}));
    EXPECT_EQ(listed(false, ".tar.data"), tNames{});
    EXPECT_EQ(listed(false, ""), tNames{"folder.data"});
}

TEST_F(tPathUtilsTest, descendsOnlyWhereAsked)
{
    for (const char* name : {"1.data", "b/2.data", "b/c/3.data", "b/System Volume Information/4.data", "b/x.y/noDot"})
        touch(name);
    EXPECT_EQ(listed(false, ".data"), tNames{"1.data"});
    EXPECT_EQ(listed(true, ".data"), (tNames{"1.data", "b/2.data", "b/c/3.data"}));
    EXPECT_EQ(listed(true, ""), (tNames{"b", "b/c", "b/x.y", "b/System Volume Information"}));
}

TEST_F(tPathUtilsTest, entersAFolderThatLinksLeadBackToOnce)
{
    touch("a/1.data");
    std::filesystem::create_directory_symlink("..", dir.file("a/up"));
    std::filesystem::create_directory_symlink(".", dir.file("a/self"));
    std::filesystem::create_directory_symlink("a", dir.file("also"));
    std::filesystem::create_symlink("1.data", dir.file("a/linked.data"));
    std::filesystem::create_symlink("nowhere", dir.file("dangling.data"));
    EXPECT_EQ(listed(true, ".data"), (tNames{"a/1.data", "a/linked.data", "also/1.data", "also/linked.data"}));
    EXPECT_EQ(listed(true, ".data", paths::eLinks::eIgnore), (tNames{"a/1.data", "a/linked.data"}));
}

TEST_F(tPathUtilsTest, saysWhichFolderCannotBeListed)
{
    tNames found;
    testing::internal::CaptureStdout();
    paths::listFolder(dir.file("none"), found, true, ".data");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "GetFileFolderInDir: open " + dir.file("none/") + " error No such file or directory\n");
    EXPECT_TRUE(found.empty());
}

TEST_F(tPathUtilsTest, makesEveryFolderThatEndsWithASlash)
{
    EXPECT_FALSE(paths::makeFolders(""));
    EXPECT_TRUE(paths::makeFolders(dir.file("a/b//c/")));
    struct stat info;
    ASSERT_EQ(::stat(dir.file("a/b").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    EXPECT_FALSE(paths::makeFolders(dir.file("a/d/e")));
    EXPECT_TRUE(paths::exists(dir.file("a/d")));
    EXPECT_FALSE(paths::exists(dir.file("a/d/e")));
    touch("file");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(paths::makeFolders(dir.file("file/below/and/further/")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to create directory.: Not a directory\n");
}

TEST_F(tPathUtilsTest, writesPathsInOneWay)
{
    const char* const cases[][2] = {{"", ""}, {"a", "a/"}, {"a/", "a/"}, {"\\", "/"}, {"C:\\x\\y", "C:/x/y/"}};
    for (const auto& c : cases)
    {
        std::string path = c[0];
        paths::normalize(path);
        EXPECT_EQ(path, c[1]);
    }
    const std::string base = std::filesystem::current_path().string() + "/";
    const std::string relative[][2] = {
        {"x", base + "x"}, {"./x/", base + "x/"}, {"/x", "/x"}, {"C:x", "C:x"}, {"", base}};
    for (const auto& c : relative)
    {
        std::string path = c[0];
        paths::makeAbsolute(path);
        EXPECT_EQ(path, c[1]);
    }
}

TEST_F(tPathUtilsTest, tellsFilesFromFoldersAndTheirSize)
{
    const std::string file = touch("f", "12345");
    EXPECT_EQ(paths::property(file), eFile);
    EXPECT_EQ(paths::property(dir.string()), eFolder);
    EXPECT_EQ(paths::property(dir.file("none")), eNoExist);
    EXPECT_EQ(paths::fileSize(file.c_str()), 5);
    EXPECT_EQ(paths::fileSize(dir.file("none").c_str()), 0);
}

TEST_F(tPathUtilsTest, wrapsDiskSizesFromTwoTebibytesOn)
{
    constexpr std::uint64_t cBlocksATebibyte = 1ull << 28;  // of 4096 bytes
    const struct
    {
        std::uint64_t blockSize, blocks, available;
        std::int32_t total, free;
    } cases[] = {
        {4096, cBlocksATebibyte, 261888, 1 << 20, 1023},
        {4096, 2 * cBlocksATebibyte - 1, 262144, (2 << 20) - 1, 1024},
        {4096, 2 * cBlocksATebibyte, 2 * cBlocksATebibyte, -(2 << 20), -(2 << 20)},
        {4096, 5 * cBlocksATebibyte, 4 * cBlocksATebibyte + 128000, 1 << 20, 500},
        {512, 4 * 1024 * 1024, 2 * 1024 * 1024, 2048, 1024},
        {512, 1023, 0, 0, 0},
        {65536, 1 << 20, 16, 65536, 1},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << c.blocks << " blocks of " << c.blockSize);
        const disk::tSize_MB size = disk::wrappedSize(c.blockSize, c.blocks, c.available);
        EXPECT_EQ(size.total, c.total);
        EXPECT_EQ(size.free, c.free);
    }
}

TEST_F(tPathUtilsTest, measuresADiskAndSaysSo)
{
    testing::internal::CaptureStdout();
    const std::int32_t free = disk::freeSize_MB(dir.string().c_str());
    const std::string said = testing::internal::GetCapturedStdout();
    EXPECT_EQ(said.rfind("Disk Total Size: ", 0), 0u);
    EXPECT_NE(said.find("MB, Free Size: " + std::to_string(free) + "MB\r\n"), std::string::npos);
    testing::internal::CaptureStdout();
    EXPECT_EQ(disk::freeSize_MB(dir.file("none").c_str()), -1);
    EXPECT_EQ(disk::trueFreeSize_MB(dir.file("none").c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(tPathUtilsTest, findsTheSizeOfAMountedDisk)
{
    EXPECT_EQ(disk::mountSize("/no such mount/"), 0);
    EXPECT_EQ(disk::mountSize(""), 0);
    if (std::system("df -P -l / >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "df is missing or shows no local disk at /";
    struct statvfs info;
    ASSERT_EQ(::statvfs("/", &info), 0);
    EXPECT_EQ(disk::mountSize("/"), static_cast<std::int64_t>(info.f_blocks * info.f_frsize / 1024));
}
