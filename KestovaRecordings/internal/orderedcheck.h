// tOrderedCheck: what a sheet knows of the segments that depends on their order: the digests of the streams and the
// numbers of the packages. One thread at a time.
#ifndef KESTOVA_RECORDINGS_ORDEREDCHECK_H
#define KESTOVA_RECORDINGS_ORDEREDCHECK_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "KestovaRecordings/internal/findinglist.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/streamcounts.h"

struct tRadarMsgPackage;

namespace recordings
{
class tOrderedCheck
{
public:
    // `sheet`: the file's own, or null: then there is nothing to check.
    explicit tOrderedCheck(const tSheet* sheet);

    bool isNeeded() const { return m_sheet != nullptr; }
    // The next record; without data it could not be read.
    void add(const tFindingPlace& place, std::string_view segment, tFindingList& findings);
    // After the last record: compares the streams, if all of those that the sheet knows were read.
    void finish(tFindingList& findings) const;

private:
    void count(const tRadarMsgPackage* package, std::string_view segment);
    void checkNumber(std::uint32_t number, const tFindingPlace& place, tFindingList& findings);

    struct tStreamAtHand
    {
        std::uint32_t ip = 0;
        std::uint16_t port = 0;
        std::uint8_t kind = 0;
        tStreamCount* count = nullptr;  // null: none yet
    };
    static constexpr std::size_t cPlaces = 16;

    const tSheet* const m_sheet;  // null: nothing is checked
    const bool m_checksNumbers;
    std::uint64_t m_records = 0;
    bool m_allRead = true;                      // of the records that the sheet knows
    std::optional<std::uint32_t> m_nextNumber;  // of a package; nothing where it is not known
    tStreamCounts m_streams;
    tStreamCount* m_raw = nullptr;
    std::array<tStreamAtHand, cPlaces> m_atHand;
};
}  // namespace recordings

#endif
