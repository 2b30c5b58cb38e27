// The fine times beside a data file: written while it is recorded, and read again.
//
// Owner    neither class keeps the data file; tFineTimesOutput owns its descriptor, tFineTimes opens the file for every
//          block of records, so that thousands can be held.
// Threads  none; one at a time, but tFineTimesOutput::sync() from any.
// Errors   fine times are an addition: what cannot be written is reported once through perror and is not known then,
//          and what does not belong to the data file is not used.
#ifndef KESTOVA_STORAGE_DATAFILE_FINETIMES_H
#define KESTOVA_STORAGE_DATAFILE_FINETIMES_H

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/finetimesformat.h"
#include "common/descriptor.h"

namespace storage
{
// Returns a random identity.
tFileId newFileId();

class tFineTimesOutput
{
public:
    tFineTimesOutput(std::string path, const tFileId& id) : m_path(std::move(path)), m_id(id) {}

    // Writes the fine times of the records from number `first` on. The first ones create the file, in the place of
    // what has its name; `slot` is the index record of the first one.
    void write(std::size_t first, const tIndexSlot& slot, std::span<const std::uint16_t> times);
    bool sync() const;  // to the disk

private:
    bool create();
    void fail();

    const std::string m_path;
    const tFileId m_id;
    mutable std::mutex m_mutex;
    tDescriptor m_file;     // changed under m_mutex, by the writing thread
    bool m_failed = false;  // nothing more is written
};

class tDataFileReader;

class tFineTimes
{
public:
    tFineTimes() = default;  // none
    // Looks at `path`; `first` is the first slot of the data file's index.
    tFineTimes(std::string path, const tIndexSlot& first);

    tFineTimesState state() const { return m_state; }
    const tFileId& id() const { return m_id; }  // with eFineTimesOurs
    // Returns the microseconds of the record with this number in the index, -1 if they are not known.
    int at(std::size_t record)
    {
        if (m_state != eFineTimesOurs)
            return -1;
        if (record / cBlock != m_block)
            load(record / cBlock);
        const std::size_t place = record % cBlock;
        return place < m_times.size() && m_times[place] < cFineTimeLimit ? m_times[place] : -1;
    }
    void refresh() { m_block = SIZE_MAX; }  // the file may have grown

private:
    static constexpr std::size_t cBlock = 1024;  // records read at once

    tFineTimesState examine(const tDescriptor& file, const tIndexSlot& first);
    void load(std::size_t block);

    std::string m_path;
    std::uint64_t m_device = 0, m_inode = 0;  // of the file that was examined
    tFileId m_id{};
    std::size_t m_block = SIZE_MAX;  // of m_times
    std::vector<std::uint16_t> m_times;
    tFineTimesState m_state = eFineTimesNone;
};

// Returns those of an open data file; none for a file without records.
tFineTimes fineTimesOf(tDataFileReader& file);
}  // namespace storage

#endif
