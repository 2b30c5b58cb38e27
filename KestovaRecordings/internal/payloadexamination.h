// tPayloadExamination: the segments of a data file, read by several threads, each with a reader of its own.
//
// Shapes   a unit is a run of records, of some 256 KiB or one block of the sheet if that is more. Threads take unit
//          after unit, read and check them; what depends on the order (digests, package numbers, findings) is done in
//          the order of the file, by the thread that has the unit.
// Threads  the calling one and `threads` - 1 more, while run() lasts.
// Errors   std::bad_alloc, of any thread, leaves run().
#ifndef KESTOVA_RECORDINGS_PAYLOADEXAMINATION_H
#define KESTOVA_RECORDINGS_PAYLOADEXAMINATION_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <vector>

#include "KestovaRecordings/internal/findinglist.h"
#include "KestovaRecordings/internal/indexexamination.h"
#include "KestovaRecordings/internal/orderedcheck.h"
#include "KestovaRecordings/internal/segmentunit.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/rawdatafile.h"

namespace recordings
{
class tPayloadExamination
{
public:
    // Receives how many bytes of segments have been read, and how many there are; false cancels.
    using tGoOn = std::function<bool(std::uint64_t bytes, std::uint64_t ofBytes)>;

    // `sheet`: the file's own, or null. Sets the worth of records in `index`.
    tPayloadExamination(const storage::tRawDataFile& file, tExaminedIndex& index, const tSheet* sheet,
                        tFindingList& findings);

    // Returns false if it was cancelled.
    bool run(unsigned threads, const tGoOn& goOn);

private:
    struct tUnit
    {
        std::size_t first, last;            // records, the last one excluded
        std::size_t firstBlock, lastBlock;  // in m_blocks
        std::uint64_t bytes;                // as stored
    };

    void divide();
    std::uint64_t storedBytes(std::size_t i) const;
    void work(const tGoOn* goOn);
    void process(std::size_t number, tSegmentUnit& segments);
    void checkBlock(const tBlock& block, const tSegmentUnit& segments, tFindingList& findings);
    void blameBlock(const tBlock& block, std::uint32_t difference, const tSegmentUnit& segments,
                    tFindingList& findings);
    void blameBit(const tBlock& block, std::uint64_t bit, const tSegmentUnit& segments, tFindingList& findings);
    void checkPackages(const tUnit& unit, const tSegmentUnit& segments, tFindingList& findings);
    bool waitForTurn(std::size_t number);
    void endTurn();
    void cancel();
    void finish();

    const storage::tRawDataFile& m_file;
    tExaminedIndex& m_index;
    const tSheet* const m_sheet;
    tFindingList& m_findings;
    const bool m_codesAreRight;  // of a compressed file: what codes stand for is known
    tOrderedCheck m_ordered;
    std::vector<tBlock> m_blocks;
    std::vector<tUnit> m_units;
    std::uint64_t m_ofBytes = 0;
    std::uint64_t m_decodedBytes = 0;  // changed in turn
    std::atomic<std::size_t> m_next{0};
    std::atomic<std::uint64_t> m_bytes{0};
    std::atomic<bool> m_cancelled{false};

    std::mutex m_mutex;
    std::condition_variable m_turnChanged;
    std::size_t m_turn = 0;        // guarded by m_mutex: the unit that is in order now
    std::exception_ptr m_failure;  // guarded by m_mutex
};
}  // namespace recordings

#endif
