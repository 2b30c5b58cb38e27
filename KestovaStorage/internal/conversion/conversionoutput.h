// tConversionOutput: the data file that a conversion writes, of any form, from front to back: payload and index
// together, in large writes.
//
// Shapes   for each segment: room(), the bytes into it, add(). finish() writes what is left and the index head. The
//          caller writes the start of the file: the magic or the encoder's head.
// Owner    the output file outlives it; memory is a buffer of 256 KiB and the records of it, or what one segment takes.
// Threads  starts none and locks nothing.
// Errors   operations return null or false if a write fails; the output file keeps the reason.
#ifndef KESTOVA_STORAGE_CONVERSION_CONVERSIONOUTPUT_H
#define KESTOVA_STORAGE_CONVERSION_CONVERSIONOUTPUT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "KestovaStorage/internal/datafile/fileforms.h"
#include "KestovaStorage/internal/datafile/indexoutput.h"
#include "KestovaStorage/internal/datafile/segmentrecord.h"
#include "KestovaStorage/internal/disk/outputfile.h"

namespace storage
{
// Receives the number of records that are whole in the file, with their index, as the output grows.
using tStored = std::function<void(std::size_t records)>;

class tConversionOutput
{
public:
    tConversionOutput(tOutputFile& out, const tFileForm& form, const tStored& stored);

    // Returns room for `size` bytes behind the payload; null if flushing the full buffer fails.
    char* room(std::size_t size);
    std::uint64_t position() const { return m_payload.position(); }  // of that room in the file
    // Takes `size` bytes of that room; `record` describes their segment.
    void add(const tSegmentRecord& record, std::size_t size);
    // Writes `rest`, the last bytes of the last segments, then the index and its head.
    bool finish(std::string_view rest);

private:
    // Bytes that follow each other in the file.
    class tPayloadOutput
    {
    public:
        tPayloadOutput(tOutputFile& out, std::uint64_t pos) : m_out(out), m_pos(pos) {}

        std::uint64_t position() const { return m_pos + m_used; }
        bool isFull(std::size_t size) const { return m_buffer.size() - m_used < size; }  // for so many more
        char* room(std::size_t size);
        void used(std::size_t size) { m_used += size; }
        void append(std::string_view bytes) { used(bytes.copy(room(bytes.size()), bytes.size())); }
        bool flush();

    private:
        tOutputFile& m_out;
        std::uint64_t m_pos;
        std::vector<char> m_buffer;
        std::size_t m_used = 0;
    };

    bool flush();
    bool flushIndex();
    void report(std::uint32_t records) const;

    const tFileForm& m_form;
    const tStored& m_stored;
    tPayloadOutput m_payload;
    std::vector<tIndexSlot> m_slots;  // records since the last flush
    tIndexOutput m_index;
};
}  // namespace storage

#endif
