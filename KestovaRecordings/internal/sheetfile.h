// The files behind a sheet: its own bytes, and what identifies its data file.
#ifndef KESTOVA_RECORDINGS_SHEETFILE_H
#define KESTOVA_RECORDINGS_SHEETFILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/datafileformat.h"
#include "common/descriptor.h"

namespace recordings
{
// Returns the path for messages, with control characters as "\x1b".
std::string shown(const std::string& path);

// A sheet that is opened for reading, without following a link.
class tSheetFile
{
public:
    explicit tSheetFile(const std::string& path);
    tSheetFile(int folder, const std::string& name);  // in an open folder

    bool exists() const { return m_exists; }
    const std::string& problem() const { return m_problem; }  // why it may not be read; empty if it may
    std::size_t size() const { return m_size; }
    const tDescriptor& file() const { return m_file; }

private:
    tDescriptor m_file;
    bool m_exists = true;
    std::string m_problem;
    std::size_t m_size = 0;
};

// What a data file says of itself before anything of it is believed.
struct tDataFileBeginning
{
    bool readable = false;
    std::optional<storage::tFileHeadSymbol> form;  // nothing for bytes that no form begins with
    std::optional<storage::tIndexSlot> first;      // nothing for a file without records
};
tDataFileBeginning readBeginning(const std::string& dataFile);

// readSheetSummary() of a data file whose folder is open and whose beginning is known.
tSheetSummary readSheetSummaryIn(int folder, const std::string& name, const tDataFileBeginning& beginning);
// Returns the first record as the slot has it, in a file of this form.
tSheetFirst firstOf(const storage::tIndexSlot& slot, storage::tFileHeadSymbol form);

// Returns whether a sheet with these parts belongs to the file. One that is not finished and has no first record, as at
// the start of a recording, belongs to every file: it says nothing of the records.
bool belongs(const std::optional<tSheetFirst>& first, storage::tFileHeadSymbol form, bool finished,
             const tDataFileBeginning& file);
}  // namespace recordings

#endif
