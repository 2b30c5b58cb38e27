// tTurn: the last turn of the antenna, spoke by spoke.
#ifndef KESTOVA_RECORDINGS_TURN_H
#define KESTOVA_RECORDINGS_TURN_H

#include <cstdint>
#include <deque>
#include <vector>

#include "KestovaRecordings/polarimage.h"
#include "KestovaRecordings/spoke.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
constexpr double cWholeTurn = 0.999;  // of which nobody sees that something is missing

// Holds the spokes of the last 360 degrees, whichever way the antenna turns, of at most 65,536 spokes and 128 MiB. One
// thread at a time.
class KESTOVA_API tTurn
{
public:
    // Takes the next spoke in the order of reception. `turned` is added to its bearings, in turns: own ship's heading,
    // if bearings from the bow are to count from north. `timeMs` is when it was received.
    void add(const tSpoke& spoke, double turned, std::uint64_t timeMs);
    // The next spoke, which belongs to another turn, begins at `bearing`: the last one fills up to there, if that is
    // near.
    void endAt(double bearing);
    void rotate(double turns);  // all spokes
    void clear();

    std::size_t spokes() const { return m_spokes.size(); }
    double covered() const;  // by the antenna, in turns, 0 to 1; what it passed over twice around a gap counts twice
    double shown() const;    // part of the turn in which there are spokes, 0 to 1
    std::uint64_t firstMs() const { return m_spokes.empty() ? 0 : m_spokes.front().timeMs; }
    std::uint64_t lastMs() const { return m_spokes.empty() ? 0 : m_spokes.back().timeMs; }
    // Returns the far edge of the farthest cell, in metres; 0 if no spoke says how long its cells are.
    double rangeM() const;

    // Returns the echoes of all spokes. A spoke fills up to the next one if that begins less than 0.02 turns on; where
    // two overlap the later one counts. Its rings are those of the spoke with the shortest cells; of others each ring
    // holds the brightest cell that touches it. Spokes without a length of cell are taken for as long as the longest.
    tPolarImage image() const;

private:
    struct tHeld
    {
        std::uint32_t from, to;  // in 1 / 2^32 of a turn
        double step;             // what the antenna turned until the next spoke, in turns; backwards negative
        std::uint64_t timeMs;
        double firstM, cellM;
        std::vector<unsigned char> cells;  // 0 to 255
    };
    static double width(const tHeld& spoke);
    static double cellOf(const tHeld& spoke, double range);
    void joinTo(tHeld& next);
    void limit();
    tPolarImage rings(std::size_t sectors, double range) const;
    const unsigned char* cellsOf(const tHeld& spoke, const tPolarImage& image, double range,
                                 std::vector<unsigned char>& resampled) const;

    std::deque<tHeld> m_spokes;
    std::vector<std::vector<unsigned char>> m_spare;  // memory of spokes that have gone
    double m_swept = 0;                               // the sum of the steps, without that of the last spoke
    std::size_t m_bytes = 0;
};
}  // namespace recordings

#endif
