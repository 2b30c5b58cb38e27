#include "KestovaStorage/internal/diskreclaimer.h"

#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "support/tempdir.h"

using storage::tDiskReclaimer;

namespace
{
class tDiskReclaimerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        touch("above stays");
        reclaimer.addRoot(this, root);
    }
    void touch(const std::string& name) const
    {
        std::filesystem::create_directories(std::filesystem::path(dir.file(name)).parent_path());
        std::ofstream(dir.file(name)) << "x";
    }
    // Files that a disk has too little room for; each look at the disk finds one less.
    void passWithTooMany(int files)
    {
        tooMany = files;
        reclaimer.pass();
    }
    std::set<std::string> left() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(dir.path()))
            names.insert(entry.path().string().substr(dir.string().size() + 1));
        names.erase("above stays");
        return names;
    }

    tTempDir dir;
    const std::string root = dir.file("a/root/");
    int tooMany = 0;
    std::vector<std::string> looked;
    tDiskReclaimer reclaimer{[this](const std::string& path) {
        looked.push_back(path);
        return tooMany-- > 0;
    }};
};
using tNames = std::set<std::string>;
}  // namespace

TEST_F(tDiskReclaimerTest, deletesTheOldestDataFilesUntilThereIsRoom)
{
    for (const char* name :
         {"a/root/Data_000001/0000.data", "a/root/Data_000001/0001.tar.data", "a/root/Data_000000/0009.data",
          "a/root/Data_000000/notes.txt", "a/root/Data_000002/0000.data"})
        touch(name);
    passWithTooMany(0);
    EXPECT_EQ(left().size(), 10u);
    passWithTooMany(3);
    EXPECT_EQ(left(), (tNames{"a", "a/root", "a/root/Data_000000", "a/root/Data_000000/notes.txt", "a/root/Data_000002",
                              "a/root/Data_000002/0000.data"}));
    EXPECT_EQ(looked, (std::vector<std::string>(5, root)));
}

TEST_F(tDiskReclaimerTest, removesEmptiedFoldersEvenAboveTheRoot)
{
    touch("a/root/Data_000000/0000.data");
    passWithTooMany(100);
    EXPECT_EQ(left(), tNames{});
    EXPECT_TRUE(std::filesystem::exists(dir.file("above stays")));
}

TEST_F(tDiskReclaimerTest, deletesNothingWhileTheOldestFileIsBeingWritten)
{
    touch("a/root/1.data");
    touch("a/root/2.data");
    std::filesystem::create_directory_symlink("a/root", dir.file("link"));
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

TEST_F(tDiskReclaimerTest, staysBelowTheRootWhateverLinksSay)
{
    touch("elsewhere/0000.data");
    touch("elsewhere/0001.data");
    touch("a/root/9.data");
    std::filesystem::create_directory_symlink(dir.file("elsewhere"), dir.file("a/root/0"));
    std::filesystem::create_symlink(dir.file("elsewhere/0001.data"), dir.file("a/root/1.data"));
    passWithTooMany(100);
    EXPECT_EQ(left(), (tNames{"a", "a/root", "a/root/0", "elsewhere", "elsewhere/0000.data", "elsewhere/0001.data"}));
}

TEST_F(tDiskReclaimerTest, leavesALinkThatIsTheRoot)
{
    touch("disk/0000.data");
    touch("disk/notes.txt");
    std::filesystem::create_directory_symlink("disk", dir.file("linked"));
    reclaimer.addRoot(this, dir.file("linked/"));
    passWithTooMany(100);
    EXPECT_EQ(left(), (tNames{"disk", "disk/notes.txt", "linked"}));
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
    EXPECT_EQ(looked, (std::vector<std::string>{"/1", "/2", "/0", "/1"}));
    reclaimer.removeRoot(&owners[1]);  // the one visited last
    reclaimer.pass();
    reclaimer.addRoot(&owners[1], "relative/");  // begins anew behind the first
    reclaimer.pass();
    looked.erase(looked.begin(), looked.begin() + 4);
    EXPECT_EQ(looked, (std::vector<std::string>{"/2", std::filesystem::current_path().string() + "/relative/"}));
}
