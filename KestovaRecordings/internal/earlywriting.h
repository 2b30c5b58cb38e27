// tEarlyWriting: lets the kernel write a growing file to the disk while it grows, so that little is left for its sync.
//
// Owner    a descriptor of its own.
// Threads  one at a time.
// Errors   none: without it the sync takes longer.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EARLYWRITING_H
#define KESTOVA_RECORDINGS_INTERNAL_EARLYWRITING_H

#include <cstdint>
#include <fcntl.h>
#include <string>

#include "common/descriptor.h"

namespace recordings
{
class tEarlyWriting
{
public:
    explicit tEarlyWriting(const std::string& path) : m_file(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}

    // The file holds bytes up to `position`.
    void reached(std::uint64_t position)
    {
        if (position - m_started < cStep || !m_file.valid())
            return;
        ::sync_file_range(m_file.get(), static_cast<off_t>(m_started), static_cast<off_t>(position - m_started),
                          SYNC_FILE_RANGE_WRITE);
        m_started = position;
    }

private:
    static constexpr std::uint64_t cStep = 8 << 20;

    tDescriptor m_file;
    std::uint64_t m_started = 0;  // writing of what lies before
};
}  // namespace recordings

#endif
