// tNewFolder: a folder that is filled under a hidden name beside and then renamed at one stroke.
//
// Names    ".NAME.part-XXXXXX" beside NAME, see KestovaStorage/partfolder.h. Holds files only, no folders.
// Owner    locks the hidden folder as long as it lives: that is how the next one distinguishes a folder in the making
//          from what a killed process has left, which it removes. On a file system without locks nothing is removed.
// Threads  one at a time.
// Errors   operations throw tFailure.
#ifndef KESTOVA_RECORDINGS_INTERNAL_NEWFOLDER_H
#define KESTOVA_RECORDINGS_INTERNAL_NEWFOLDER_H

#include <string>

#include "common/descriptor.h"

namespace recordings
{
// Renames without replacing anything; returns false and sets errno where that fails.
bool renameNew(const std::string& from, const std::string& to);

class tNewFolder
{
public:
    explicit tNewFolder(const std::string& path);
    ~tNewFolder();
    tNewFolder(const tNewFolder&) = delete;
    tNewFolder& operator=(const tNewFolder&) = delete;

    const std::string& path() const { return m_path; }  // that it will have
    const std::string& part() const { return m_part; }  // that it has until then
    void commit();  // syncs its entries and renames it, unless something has taken the name meanwhile

private:
    void create();
    bool claim();

    std::string m_path, m_parent, m_name;
    std::string m_part;
    tDescriptor m_folder;  // of m_part, locked
    bool m_committed = false;
};
}  // namespace recordings

#endif
