#include "sessions/record/keptsheet.h"

#include <unistd.h>
#include <utility>

#include "KestovaStorage/companions.h"
#include "KestovaStorage/datafileconverter.h"

namespace session
{
using namespace recordings;

namespace
{
std::optional<struct stat> statusOf(const std::string& path)
{
    struct stat status
    {};
    if (::lstat(path.c_str(), &status) != 0)
        return std::nullopt;
    return status;
}

bool isSame(const timespec& a, const timespec& b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool isSame(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size && isSame(a.st_mtim, b.st_mtim) &&
           isSame(a.st_ctim, b.st_ctim);
}
}  // namespace

void tKeptSheet::write(tSheet sheet, bool kept)
{
    const tSheetLock lock(m_dataFile);
    if (presentForm().empty())
        return;
    m_kept = m_kept || (kept && !written());
    takeChanges(sheet);
    sheet.notes = m_notes;
    sheet.kept = m_kept;
    writeSheet(m_dataFile, sheet);
    const std::string name = storage::sheetName(m_dataFile);
    m_status = statusOf(name);
    if (presentForm().empty())  // deleted meanwhile, by a process that saw no sheet
        ::unlink(name.c_str());
}

// Returns nothing for a file that is gone.
std::string tKeptSheet::presentForm() const
{
    for (const std::string& form : {m_dataFile, storage::tDataFileConverter::CompressedName(m_dataFile, ".data")})
    {
        if (::access(form.c_str(), F_OK) == 0)
            return form;
    }
    return {};
}

// Of another recording's sheet, whose file had this name once, nothing is taken. One that is damaged, or gone, is
// replaced by what this recorder knows.
void tKeptSheet::takeChanges(const tSheet& sheet)
{
    const auto status = statusOf(storage::sheetName(m_dataFile));
    if (!status || (m_status && isSame(*status, *m_status)))
        return;
    tFoundSheet found = readSheet(presentForm());
    if (!found || (found.sheet.id != sheet.id && !found.sheet.notesOnly))
        return;
    m_notes = std::move(found.sheet.notes);
    m_kept = found.sheet.kept || (m_kept && !written());
}
}  // namespace session
