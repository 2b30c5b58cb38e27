// tTimelineFile, tTimelineRecords: the indexes of the files of a timeline, and a walk over their records.
//
// Shapes   an index is in memory, or stays in its file and is read block by block: then memory holds the time of each
//          block's first record, and a walk holds of each file the block that it used last.
// Owner    refers to the files' indexes; they must stay.
// Threads  none; a walk is used by one thread.
#ifndef KESTOVA_STORAGE_PLAYBACK_TIMELINEFILE_H
#define KESTOVA_STORAGE_PLAYBACK_TIMELINEFILE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/internal/datafile/indexblock.h"

namespace storage
{
struct tTimelineFile
{
    std::span<tIndexSlot> index;  // all records, if they are in memory
    bool sorted = true;           // by time
    std::size_t longestRun = 0;   // of neighbours with equal times
    // Of an index that is read block by block, which is sorted:
    std::size_t count = 0;                        // of records
    std::span<const std::uint64_t> blockTimes{};  // of the blocks' first records
    std::uint64_t lastTime = 0;

    bool inBlocks() const { return !blockTimes.empty(); }
    std::size_t size() const { return inBlocks() ? count : index.size(); }
    // Of files with records, in order of time.
    std::uint64_t firstTimeSorted() const { return inBlocks() ? blockTimes.front() : timeOf(index.front()); }
    std::uint64_t lastTimeSorted() const { return inBlocks() ? lastTime : timeOf(index.back()); }
};

class tTimelineRecords
{
public:
    // Reads block `block` of file number `file`.
    using tReadBlock = std::function<void(std::uint32_t file, std::size_t block, tIndexBlock& to)>;

    tTimelineRecords(std::span<const tTimelineFile> files, const tReadBlock& readBlock)
        : m_files(files), m_readBlock(&readBlock), m_blocks(files.size())
    {}

    // Returns a record, valid until the next call for that file.
    const tIndexSlot& at(std::uint32_t file, std::size_t record)
    {
        const tTimelineFile& one = m_files[file];
        return one.inBlocks() ? block(file, record / cIndexBlock)[record % cIndexBlock] : one.index[record];
    }
    // Reads no block for the first record of one.
    std::uint64_t timeAt(std::uint32_t file, std::size_t record)
    {
        const tTimelineFile& one = m_files[file];
        return one.inBlocks() && record % cIndexBlock == 0 ? one.blockTimes[record / cIndexBlock]
                                                           : timeOf(at(file, record));
    }
    // Returns the number of the first record that is not before `time`; the index is in order of time.
    std::size_t firstNotBefore(std::uint32_t file, std::uint64_t time);
    // Gives the file's block back.
    void release(std::uint32_t file) { m_blocks[file].slots.reset(); }

private:
    struct tBlock
    {
        std::unique_ptr<tIndexBlock> slots;
        std::size_t number = 0;
    };
    const tIndexBlock& block(std::uint32_t file, std::size_t number)
    {
        tBlock& held = m_blocks[file];
        if (!held.slots || held.number != number)
            load(held, file, number);
        return *held.slots;
    }
    void load(tBlock& held, std::uint32_t file, std::size_t number);

    std::span<const tTimelineFile> m_files;
    const tReadBlock* m_readBlock;
    std::vector<tBlock> m_blocks;  // one a file
};
}  // namespace storage

#endif
