// tIndexExamination: the index of a data file as it lies on the disk, and which of its records can be whole.
//
// Shapes   with checksums of a sheet a wrong record is mostly known to the bit. Without them a record is judged by what
//          it points to and by its neighbours: segments lie back to back.
// Growth   the sheet was read before: of a file that is being written the index has all that the sheet knows of.
#ifndef KESTOVA_RECORDINGS_INDEXEXAMINATION_H
#define KESTOVA_RECORDINGS_INDEXEXAMINATION_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "KestovaRecordings/internal/findinglist.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/rawdatafile.h"

namespace recordings
{
enum eWorth : std::uint8_t
{
    eWhole,
    eCorrected,  // one bit of its slot was wrong; `slots` has it as it was written
    eDoubtful,   // its place contradicts that of its neighbours
    eBroken
};

struct tExaminedIndex
{
    storage::tIndexHead head{};
    bool finished = false;  // the index head was written
    std::uint64_t size = 0;
    std::vector<storage::tIndexSlot> slots;
    std::vector<eWorth> worth;  // of each; several threads may set those of different records
    std::uint64_t missing = 0;  // records that were there once and have no slot now
    std::uint32_t longest = 0;  // length of the longest record, as its slot has it

    std::size_t count() const { return slots.size(); }
};

// A run of records that a sheet has checksums of.
struct tBlock
{
    std::size_t first, last;  // the last one excluded
    std::uint32_t payload, index;
};

// Returns the blocks of a sheet that lie whole within `records` records.
std::vector<tBlock> blocksOf(const tSheet& sheet, std::size_t records);

class tIndexExamination
{
public:
    // `sheet`: the file's own, or null. `isGrowing`: the file is being written. All outlive the object.
    tIndexExamination(const storage::tRawDataFile& file, const tSheet* sheet, bool isGrowing, tFindingList& findings);

    tExaminedIndex run();

private:
    void read();
    void readSlots(std::size_t count, bool untilEnd);
    bool isEnd(const storage::tIndexSlot& slot) const;
    void settleCount();
    void settleBySheet();
    void settleByItself();
    bool endsWithLastRecord() const;
    bool follows(std::size_t i) const;
    void checkSums();
    void checkSum(const tBlock& block);
    void checkRecords();
    const char* impossible(const storage::tRawRecord& record, const char*& kind) const;
    void checkPlaces();
    std::size_t nextPossible(std::size_t i) const;
    bool blameForPlace(std::size_t before, std::size_t i);
    void doubt(std::size_t i, bool overlaps);
    void breakUnexplained();
    void checkEnd();
    void checkCodesEnd(std::uint64_t endBit, std::uint64_t end);

    storage::tRawRecord recordAt(std::size_t i) const { return m_file.record(m_index.slots[i]); }
    std::uint64_t beginOf(std::size_t i) const;  // in bits
    std::uint64_t endOf(std::size_t i) const { return beginOf(i) + recordAt(i).bits; }
    std::uint64_t slotPos(std::size_t i) const { return storage::cIndexPos + i * storage::cIndexSlotSize; }
    std::uint64_t timeAround(const tBlock& block) const;

    const storage::tRawDataFile& m_file;
    const tSheet* const m_sheet;
    const bool m_isGrowing;
    tFindingList& m_findings;
    tExaminedIndex m_index;
    std::vector<bool> m_sure;         // the slot is as it was written
    std::vector<tBlock> m_unlocated;  // whose index sum is wrong by more than a bit
};
}  // namespace recordings

#endif
