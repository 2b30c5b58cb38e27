// tCaptureFile: a capture, record by record, through one window that moves over the file.
//
// Shapes   next() returns every record in file order; a last one that the file does not hold whole is returned once,
//          with the bytes that are there. A head or record head that is cut reads as if zeros followed.
// Memory   the window, whatever the file claims: a record is seen up to cRecordReach, what lies behind is skipped.
// Owner    owns the descriptor; the bytes of a record are valid until the next call and may be written to, one byte
//          behind them too (it belongs to the next record: restore it).
// Threads  starts none, locks nothing.
// Errors   after a read error, or if the file is cut meanwhile, next() returns false. What is appended meanwhile is not
//          read.
#ifndef KESTOVA_STORAGE_CAPTURE_CAPTUREFILE_H
#define KESTOVA_STORAGE_CAPTURE_CAPTUREFILE_H

#include <memory>
#include <string>

#include "KestovaStorage/internal/capture/captureformat.h"
#include "common/descriptor.h"

namespace pcap
{
struct tCaptureRecord
{
    std::uint32_t seconds, microseconds;
    char* bytes;
    std::size_t held;   // bytes that are there, at most cRecordReach
    std::uint64_t end;  // offset of what follows the record in the file, never beyond the file's end
    bool cut;           // the file ends within the record
};

class tCaptureFile
{
public:
    // Returns null for what cannot be opened or is no regular file: reading a folder or a pipe would fail or wait.
    static std::unique_ptr<tCaptureFile> open(const std::string& path);

    std::uint64_t size() const { return m_size; }
    std::uint32_t magic() const { return m_magic; }
    std::uint32_t linkType() const { return m_linkType; }
    bool next(tCaptureRecord& record);
    bool atEnd() const { return m_pos == m_size; }  // false after the last record: reading the rest failed
    bool cut() const { return m_size < sizeof(tPcapFileHeader); }  // within its head

private:
    tCaptureFile(tDescriptor descriptor, std::uint64_t size);
    void readHead();
    char* view(std::uint64_t pos, std::size_t& len);

    const tDescriptor m_descriptor;
    const std::uint64_t m_size;                // when it was opened
    const std::unique_ptr<char[]> m_window;    // with one byte to spare at its end
    std::uint64_t m_windowPos = 0, m_pos = 0;  // offsets of the window's first byte and of the next record
    std::size_t m_filled = 0;                  // bytes in the window
    std::uint32_t m_magic = 0, m_linkType = 0;
};
}  // namespace pcap

#endif
