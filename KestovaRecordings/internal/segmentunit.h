// tSegmentUnit: the segments of a run of records, all in memory at once. Every thread that reads a file has one.
#ifndef KESTOVA_RECORDINGS_SEGMENTUNIT_H
#define KESTOVA_RECORDINGS_SEGMENTUNIT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "KestovaRecordings/internal/indexexamination.h"
#include "KestovaStorage/rawdatafile.h"

namespace recordings
{
class tSegmentUnit
{
public:
    // Both outlive the object.
    tSegmentUnit(const storage::tRawDataFile& file, const tExaminedIndex& index);

    // Reads the segments of the records from `first` up to `last`, that one excluded; broken ones are passed over.
    void load(std::size_t first, std::size_t last);
    void release();  // the memory

    // Of a record of the unit; valid until the next load(). Null data if it was not or could not be read.
    std::string_view segment(std::size_t record) const { return m_segments[record - m_first]; }

private:
    bool loadAtOnce(std::size_t first, std::size_t last);
    void loadInGroups(std::size_t first, std::size_t last);
    void keepGroup(std::size_t first);
    void keep(std::size_t record, const storage::tSegmentView& segment);
    bool isReadable(std::size_t record) const { return m_index.worth[record] != eBroken; }

    const storage::tRawDataFile& m_file;
    const tExaminedIndex& m_index;
    std::unique_ptr<storage::tRawSegments> m_reader;
    std::vector<storage::tRawRecord> m_records;
    std::vector<storage::tSegmentView> m_views;
    std::vector<std::string_view> m_segments;

    struct tKept
    {
        std::size_t record, begin, len;
    };
    std::vector<char> m_bytes;  // of segments that were read in several pieces
    std::vector<tKept> m_kept;
    std::size_t m_first = 0;
};
}  // namespace recordings

#endif
