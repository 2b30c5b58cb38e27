// tStreamSheet: the row of a stream in a sheet, message by message.
//
// Threads  one at a time.
#ifndef KESTOVA_RECORDINGS_STREAMSHEET_H
#define KESTOVA_RECORDINGS_STREAMSHEET_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "KestovaRecordings/sheet.h"

namespace recordings
{
class tStreamSheet
{
public:
    explicit tStreamSheet(const tStreamKey& key) { m_row.key = key; }

    const tStreamKey& key() const { return m_row.key; }
    void add(std::uint64_t timeMs, std::string_view message);
    void fill(tSheetStream& row) const;  // all but kernelDropped and missingOnWire

private:
    void addSecond(std::uint64_t second);
    void addSilence(tGap gap);

    // As in a sheet, but for: gaps are a heap, the shortest on top; seconds come as the messages came, one more than
    // once if times are not in order.
    tSheetStream m_row;
    std::uint64_t m_previousMs = 0;
    bool m_ordered = true;             // the seconds
    std::size_t m_mostSeconds = 4096;  // they are put in order when there are more
};
}  // namespace recordings

#endif
