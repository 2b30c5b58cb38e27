// tSegmentReader: the bytes of recorded segments, from files of every form.
//
// Shapes   reads `window` bytes at once while segments are read in file order, and of one file. Buffers grow to the
//          longest segment read.
// Threads  starts none and locks nothing: one thread at a time.
// Errors   returns no value if the file does not hold the bytes, its codes cannot be used, or memory runs out.
#ifndef KESTOVA_STORAGE_DATAFILE_SEGMENTREADER_H
#define KESTOVA_STORAGE_DATAFILE_SEGMENTREADER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "KestovaStorage/internal/datafile/datafilereader.h"

namespace storage
{
class tSegmentReader
{
public:
    explicit tSegmentReader(std::size_t window = 0) : m_windowSize(window) {}

    // Returns segment number `record` of the file's index; valid until the next read.
    std::optional<std::string_view> read(tDataFileReader& file, std::size_t record);
    // Returns the segment of any record of this file.
    std::optional<std::string_view> read(tDataFileReader& file, const tSegmentRecord& record);
    // Copies `len` bytes from `offset` on of a record's segment; of a long one that is no code it reads only these, and
    // what lies right behind them. Returns false if the segment does not hold them.
    bool readPart(tDataFileReader& file, const tSegmentRecord& record, std::size_t offset, std::size_t len, char* to);
    // Some records that lie in bytes which are read.
    struct tRun
    {
        const char* bytes;  // valid until the next read
        std::uint64_t pos;  // of the first of them in the file
        std::size_t records;
    };
    // Reads the segments of up to `count` records from number `first` on: as many as lie in the bytes that the first
    // one brings, in their order. None if that is long or cannot be read. Not of compressed files.
    tRun readRun(tDataFileReader& file, std::size_t first, std::size_t count);
    // Sets `segments` to those of the records, which follow each other; all are valid until the next read. Returns
    // false if one cannot be read. Compressed ones are decoded faster than one by one.
    bool readSeveral(tDataFileReader& file, std::span<const tSegmentRecord> records,
                     std::span<std::string_view> segments);
    // Reads the bytes of the records from `first` to `last`, which follow each other, at once: the next reads find
    // them.
    void readAhead(tDataFileReader& file, const tSegmentRecord& first, const tSegmentRecord& last);

private:
    // Memory that is not initialised and does not become smaller.
    class tBuffer
    {
    public:
        char* need(std::size_t size);
        std::size_t size() const { return m_size; }

    private:
        std::unique_ptr<char[]> m_bytes;
        std::size_t m_size = 0;
    };

    std::optional<std::string_view> decode(tDataFileReader& file, const tSegmentRecord& record);
    bool decodeSeveral(tDataFileReader& file, const char* bytes, std::span<const tSegmentRecord> records,
                       std::span<std::string_view> segments);
    const char* bytesAt(tDataFileReader& file, std::uint64_t pos, std::size_t len);
    bool copyPart(tDataFileReader& file, std::uint64_t pos, std::size_t len, char* to);
    bool load(tDataFileReader& file, std::uint64_t pos, std::size_t size, std::size_t needed);

    const std::size_t m_windowSize;
    tBuffer m_read, m_decoded;
    std::vector<tSegmentCodes> m_codes;
    const tDataFileReader* m_file = nullptr;  // whose bytes m_read holds, from m_pos to m_end
    std::uint64_t m_pos = 0, m_end = 0;
    std::uint64_t m_readFrom = 0;  // where the last segment began
    struct
    {
        const tDataFileReader* file = nullptr;
        std::uint64_t pos = 0, end = 0;
        char bytes[512];
    } m_part;  // read last by readPart()
};
}  // namespace storage

#endif
