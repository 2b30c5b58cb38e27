// tPartFile: a file that is written under another name beside and renamed when it is whole.
//
// Names    PATH.part, which must not exist; neither may PATH. Without finish() the destructor removes it.
// Threads  one at a time.
// Errors   operations throw tFailure.
#ifndef KESTOVA_RECORDINGS_INTERNAL_PARTFILE_H
#define KESTOVA_RECORDINGS_INTERNAL_PARTFILE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "KestovaRecordings/internal/earlywriting.h"
#include "common/descriptor.h"

namespace recordings
{
class tPartFile
{
public:
    explicit tPartFile(const std::string& path);
    ~tPartFile();
    tPartFile(const tPartFile&) = delete;
    tPartFile& operator=(const tPartFile&) = delete;

    void write(std::string_view bytes);  // gathers small pieces
    std::uint64_t size() const { return m_written + m_buffer.size(); }
    void finish();  // syncs and renames it, unless something has taken the name meanwhile

private:
    void writeThrough(std::string_view bytes);
    [[noreturn]] void fail() const;

    const std::string m_path, m_part;
    tDescriptor m_file;
    tEarlyWriting m_early;
    std::string m_buffer;
    std::uint64_t m_written = 0;
    bool m_finished = false;
};
}  // namespace recordings

#endif
