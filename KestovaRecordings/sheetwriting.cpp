// Writing of sheets: the lock, the replacement of a file by one rename, and the changes that users make.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/sheetfile.h"
#include "KestovaRecordings/internal/sheetformat.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/companions.h"
#include "common/descriptor.h"

namespace recordings
{
namespace
{
// Ends with "/"; empty for the working folder.
std::string folderOf(const std::string& path)
{
    return path.substr(0, path.rfind('/') + 1);
}

[[noreturn]] void failWriting(const std::string& sheet, const std::string& why)
{
    throw tFailure(fmt::format("cannot write {}: {}", shown(sheet), why));
}

bool isSame(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// A file that is removed unless it gets its name. The lock of the folder lets one exist at a time, so that its name is
// fixed: what a killed process left is replaced.
class tSheetPart
{
public:
    explicit tSheetPart(const std::string& sheet) : m_sheet(sheet), m_path(folderOf(sheet) + ".sheet.part")
    {
        ::unlink(m_path.c_str());
        m_file = tDescriptor(::open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
        if (!m_file.valid())
            failWriting(m_sheet, std::strerror(errno));
    }
    ~tSheetPart()
    {
        if (!m_path.empty())
            ::unlink(m_path.c_str());
    }
    tSheetPart(const tSheetPart&) = delete;
    tSheetPart& operator=(const tSheetPart&) = delete;

    void write(const std::string& text)
    {
        if (!m_file.writeAllAt(text.data(), text.size(), 0) || ::fsync(m_file.get()) != 0)
            failWriting(m_sheet, std::strerror(errno != 0 ? errno : ENOSPC));
    }
    // Where a file system has no locks another process may write at the same time: what it has not finished stays.
    void rename()
    {
        struct stat ours
        {
        }, there{};
        if (::fstat(m_file.get(), &ours) != 0 || ::lstat(m_path.c_str(), &there) != 0 || !isSame(ours, there))
            failWriting(m_sheet, "another process is writing a sheet there");
        if (std::rename(m_path.c_str(), m_sheet.c_str()) != 0)
            failWriting(m_sheet, std::strerror(errno));
        m_path.clear();
    }

private:
    const std::string m_sheet;
    std::string m_path;
    tDescriptor m_file;
};

void syncFolder(const std::string& dataFile)
{
    const std::string name = folderOf(dataFile);
    const tDescriptor folder(::open(name.empty() ? "." : name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.valid())
        ::fsync(folder.get());
}

// A sheet for a file that has none: it says of which file it is, and nothing of its records.
tSheet notesOnlySheet(const std::string& dataFile)
{
    tSheet sheet;
    sheet.notesOnly = true;
    const tDataFileBeginning file = readBeginning(dataFile);
    sheet.form = file.form.value_or(storage::cDataFileHead);
    if (file.first)
        sheet.first = firstOf(*file.first, sheet.form);
    return sheet;
}

template <typename tChange>
void changeSheet(const std::string& dataFile, tChange change)
{
    const tSheetLock lock(dataFile);
    struct stat file
    {};
    if (::stat(dataFile.c_str(), &file) != 0)
        throw tFailure(fmt::format("cannot open {}: {}", shown(dataFile), std::strerror(errno)));
    if (!S_ISREG(file.st_mode))
        throw tFailure(shown(dataFile) + " is no data file");
    tFoundSheet found = readSheet(dataFile);
    if (found.state == eSheetState::eDamaged && found.reason.find(cLaterVersion) != std::string::npos)
        throw tFailure(found.reason + ": it is left as it is");
    tSheet sheet = found ? std::move(found.sheet) : notesOnlySheet(dataFile);
    change(sheet);
    writeSheet(dataFile, sheet);
    syncFolder(dataFile);
}
}  // namespace

tSheetLock::tSheetLock(const std::string& dataFile)
{
    const std::string folder = folderOf(dataFile);
    m_folder = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    while (m_folder >= 0 && ::flock(m_folder, LOCK_EX) != 0 && errno == EINTR)
        ;
}

// A process that was forked meanwhile has the descriptor, too, and would hold the lock.
tSheetLock::~tSheetLock()
{
    if (m_folder < 0)
        return;
    ::flock(m_folder, LOCK_UN);
    ::close(m_folder);
}

void writeSheet(const std::string& dataFile, const tSheet& sheet)
{
    const std::string name = storage::sheetName(dataFile);
    const std::string text = sheetText(sheet);
    if (text.size() > cSheetSizeLimit || sheet.notes.size() > cMostEntries)
        failWriting(name, "the sheet would be larger than it may be");
    tSheetPart part(name);
    part.write(text);
    part.rename();
}

void addNote(const std::string& dataFile, const tNote& note)
{
    changeSheet(dataFile, [&](tSheet& sheet) { sheet.notes.push_back(note); });
}

void setKept(const std::string& dataFile, bool kept)
{
    changeSheet(dataFile, [&](tSheet& sheet) { sheet.kept = kept; });
}
}  // namespace recordings
