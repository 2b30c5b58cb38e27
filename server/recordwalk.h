// tRecordWalk: the records of a recording in order of time, forwards and backwards from any place.
#ifndef KESTOVA_SERVER_RECORDWALK_H
#define KESTOVA_SERVER_RECORDWALK_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaStorage/datafile.h"

namespace server
{
struct tWalked
{
    std::uint64_t timeMs = 0;
    std::string_view bytes;  // of the segment; valid until the walk is used again
};

// One thread at a time. Holds one file open, with its index. The place is between two records.
class tRecordWalk
{
public:
    explicit tRecordWalk(const std::string& folder);

    // Looks for files and records that have come since. The place stays.
    void refresh();
    std::uint64_t firstMs() const { return m_parts.empty() ? 0 : m_parts.front().firstMs; }
    std::uint64_t lastMs() const { return m_lastMs; }
    bool isRecording() const { return m_isRecording; }  // at the last look

    void seek(std::uint64_t ms);  // before the first record from then on
    // Returns the time of the record behind the place, before it; nothing at an end.
    std::optional<std::uint64_t> nextMs();
    // Sets the record and goes past it. Returns false at an end. Passes over what cannot be read.
    bool next(tWalked& record);
    bool previous(tWalked& record);

    std::string file() const { return m_part < m_parts.size() ? m_parts[m_part].path : std::string(); }
    std::string fileAt(std::uint64_t ms) const;

private:
    struct tPart
    {
        std::string path;
        std::uint64_t firstMs, lastMs;
    };
    bool open(std::size_t part);
    bool read(std::size_t record, tWalked& walked);
    void look();

    const std::string m_folder;
    std::vector<tPart> m_parts;  // in the order of their first records
    std::uint64_t m_lastMs = 0;
    bool m_isRecording = false;
    storage::tDataFile m_file;
    std::string m_opened;      // what m_file has open; empty for nothing
    bool m_isSorted = true;    // the opened file
    std::size_t m_part = 0;    // the place: a file,
    std::size_t m_record = 0;  // and a record in it
};
}  // namespace server

#endif
