// tPolarTurn: the spokes of one turn as rows of a picture.
//
// Shapes   a row is the time (8 bytes, us since 1970), the bearing (2 bytes, 5,600 steps a turn), whether it was
//          received (255 or 0), and the cells, nearest first; numbers little-endian. Rows are as long as the longest,
//          and dark behind their cells.
// Threads  one at a time.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_POLARTURN_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_POLARTURN_H

#include <cstdint>
#include <string>
#include <vector>

#include "KestovaRecordings/internal/turncover.h"
#include "KestovaRecordings/spoke.h"

namespace recordings
{
class tPolarTurn
{
public:
    // Adds a spoke, and a row that is not valid for each of those that are missing before it.
    void add(const tSpoke& spoke, std::uint64_t timeUs, std::uint32_t missing);
    void clear();

    std::size_t rows() const { return m_rows.size(); }
    std::uint64_t timeUs() const { return m_rows.empty() ? 0 : m_rows.front().timeUs; }
    double covered() const { return m_cover.covered(); }  // of the turn
    std::string png() const;

private:
    struct tRow
    {
        std::uint64_t timeUs;
        double bearing;
        bool isValid;
        std::size_t at, cells;  // in m_cells
    };
    void addMissing(const tSpoke& spoke, std::uint64_t timeUs, std::uint32_t missing);

    std::vector<tRow> m_rows;
    std::vector<unsigned char> m_cells;
    std::size_t m_longest = 0;
    tTurnCover m_cover;
};
}  // namespace recordings

#endif
