#include "sessions/keeping.h"

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/sheet.h"

namespace session
{
using namespace recordings;

void tKeeping::mark(const tFoundFiles& found)
try
{
    for (const std::string& file : found.files)
        if (const auto present = presentForm(file, found.files, m_suffix))
            markFile(*present);
}
catch (const tFailure&)
{
    takeBack();
    throw;
}

void tKeeping::markFile(const std::string& file)
{
    ++m_marked;
    if (readSheetSummary(file).kept == m_kept)
        return;
    setKept(file, m_kept);
    m_changed.push_back(file);
}

void tKeeping::takeBack()
{
    for (const std::string& file : m_changed)
    {
        try
        {
            setKept(file, !m_kept);
        }
        catch (const tFailure&)
        {
            // The first failure is the one that is reported.
        }
    }
}
}  // namespace session
