// tBlockSums: the checksums of the blocks of a file, record by record.
//
// Threads  one at a time.
#ifndef KESTOVA_RECORDINGS_BLOCKSUMS_H
#define KESTOVA_RECORDINGS_BLOCKSUMS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/finetimesformat.h"

namespace recordings
{
constexpr std::uint64_t cBlockBytes = std::uint64_t(1) << 20;  // of segments, unless one is longer

class tBlockSums
{
public:
    // The segment stays where it is until settle().
    void add(const storage::tIndexSlot& slot, std::uint16_t us, std::string_view segment);
    // Sums up the segments so far.
    void settle();
    // Sets the blocks, the one that is not complete included, and the checksum of the fine times.
    void fill(tSheet& sheet) const;

private:
    // Checksums of a few bytes a record cost less when they are computed of many at once.
    template <std::size_t cWidth>
    class tGathered
    {
    public:
        unsigned char* next();
        std::uint32_t sum() const;
        void clear();

    private:
        std::array<unsigned char, 64 * cWidth> m_bytes{};
        std::size_t m_used = 0;
        std::uint32_t m_sum = 0;  // of those before
    };

    void endBlock();

    tSheetBlocks m_blocks;  // complete ones
    std::uint64_t m_second = 0, m_bytes = 0;
    std::uint32_t m_records = 0, m_payload = 0;
    std::string_view m_pending;  // the last segments, back to back, which m_payload lacks
    tGathered<storage::cIndexSlotSize> m_slots;
    tGathered<storage::cFineTimeSize> m_fineTimes;
    bool m_hasFineTimes = false;
};
}  // namespace recordings

#endif
