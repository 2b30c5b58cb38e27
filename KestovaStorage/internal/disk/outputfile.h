// tOutputFile: a file that is written under a temporary name and renamed once it is whole and on the disk.
//
// Owner    owns the descriptor. Destruction removes a file that was not committed.
// Threads  none; one at a time.
// Errors   an operation that fails returns false; status() returns the reason of the first failure.
#ifndef KESTOVA_STORAGE_DISK_OUTPUTFILE_H
#define KESTOVA_STORAGE_DISK_OUTPUTFILE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/descriptor.h"
#include "common/status.h"

namespace storage
{
class tOutputFile
{
public:
    // Creates `name` with another ending, so that no reader takes it for a data file. Replaces what an earlier attempt
    // left there; fails with EBUSY while another process writes it.
    explicit tOutputFile(const std::string& name);
    ~tOutputFile();
    tOutputFile(const tOutputFile&) = delete;
    tOutputFile& operator=(const tOutputFile&) = delete;

    bool isOpen() const { return m_file.valid(); }
    bool wasOpened() const { return m_wasOpened; }      // even if somebody else is writing it, or it cannot be locked
    const std::string& path() const { return m_path; }  // while it is written
    const tStatus& status() const { return m_status; }
    int error() const { return m_status.error(); }
    bool writeAt(const void* data, std::size_t len, std::uint64_t pos);
    bool sync();
    bool likeFile(const std::string& path);  // takes that file's owner, permissions and times
    // Syncs, and renames the file to `name`; an existing file of that name is replaced.
    bool commit(const std::string& name);

private:
    bool claim();
    bool fail();

    const std::string m_path;
    tDescriptor m_file;
    tStatus m_status;
    bool m_wasOpened = false;
    bool m_committed = false;
};

// Makes a change of names in the folder of `path` permanent, if the file system supports it.
void syncFolderOf(const std::string& path);
}  // namespace storage

#endif
