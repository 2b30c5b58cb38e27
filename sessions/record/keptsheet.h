// tKeptSheet: the sheet of one file on the disk, which this recorder writes and users add notes to.
//
// Threads  one at a time.
#ifndef KESTOVA_SESSIONS_RECORD_KEPTSHEET_H
#define KESTOVA_SESSIONS_RECORD_KEPTSHEET_H

#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "KestovaRecordings/sheet.h"

namespace session
{
class tKeptSheet
{
public:
    explicit tKeptSheet(std::string dataFile) : m_dataFile(std::move(dataFile)) {}

    // Writes the sheet with the notes that users have added and with what they keep; a first one with `kept` if that is
    // set. Does nothing for a file that is gone, in both its forms. Throws tFailure if writing fails.
    void write(recordings::tSheet sheet, bool kept);
    bool written() const { return m_status.has_value(); }
    bool kept() const { return m_kept; }  // as written last

private:
    std::string presentForm() const;
    void takeChanges(const recordings::tSheet& sheet);

    const std::string m_dataFile;
    std::vector<recordings::tNote> m_notes;
    bool m_kept = false;
    std::optional<struct stat> m_status;  // of the sheet that was written last
};
}  // namespace session

#endif
