// The lock of a data file that is being written: readers see by it whether an unfinished file has a living writer. It
// goes with the descriptor, whatever ends the process.
#ifndef KESTOVA_STORAGE_DATAFILE_WRITINGLOCK_H
#define KESTOVA_STORAGE_DATAFILE_WRITINGLOCK_H

#include <cerrno>
#include <chrono>
#include <sys/file.h>
#include <thread>

namespace storage
{
// Returns false, with errno set: to EWOULDBLOCK if somebody has the lock, otherwise the file system has no locks.
// Whoever asks whether a file is being written holds a lock of it for an instant, so it tries for some milliseconds.
inline bool takeWritingLock(int file)
{
    constexpr int cTries = 20;
    for (int tries = 1; ::flock(file, LOCK_EX | LOCK_NB) != 0; ++tries)
    {
        if (errno != EWOULDBLOCK || tries == cTries)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

inline void releaseWritingLock(int file)
{
    ::flock(file, LOCK_UN);
}
}  // namespace storage

#endif
