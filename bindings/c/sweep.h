// tSweep: the spokes of one turn, gathered once, as C sees them.
//
// Shapes   rows of cells() cells of cellBytes() bytes without gaps; shorter spokes end in zeros.
// Owner    the memory of everything that a view points to.
// Threads  one at a time while it is gathered; any afterwards.
#ifndef KESTOVA_C_SWEEP_H
#define KESTOVA_C_SWEEP_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "KestovaRecordings/spoke.h"
#include "bindings/c/kestova.h"

namespace binding
{
// What is known of a spoke beside what it says itself.
struct tSpokePlace
{
    std::uint64_t timeMs;
    float headingDeg;  // NaN: not known, or too old
    double turned;     // own ship's last heading in turns, however old; NaN: none so far
};
}  // namespace binding

struct kestova_sweep
{
public:
    // Without cells nothing of them is kept. `rows` is how many spokes are expected.
    kestova_sweep(bool withCells, std::size_t rows) : m_withCells(withCells), m_expected(rows) {}

    // Throws std::bad_alloc.
    void add(const recordings::tSpoke& spoke, const binding::tSpokePlace& place);
    std::size_t spokes() const { return m_bearing.size(); }
    std::size_t bytes() const { return m_capacity * m_cells * m_cellBytes; }
    // Returns the part of the turn that the spokes cover, 0 to 1.
    double covered() const;

    // What the one who gathers sets.
    std::uint32_t missing = 0;
    bool complete = false, beganAtZero = false;
    double endBearing = -1;  // where the next turn begins; below 0: not known

    kestova_sweep_view view() const;
    // Returns the cells of a spoke as one byte each, full scale as 255.
    void greyOf(std::size_t spoke, unsigned char* to) const;
    // Returns own ship's heading at each spoke, in turns: where it is not known, that of the nearest one that has it.
    // Empty if none has.
    std::vector<double> headings() const;

private:
    struct tFree
    {
        void operator()(unsigned char* memory) const { std::free(memory); }
    };
    using tMemory = std::unique_ptr<unsigned char, tFree>;

    static tMemory allocate(std::size_t bytes);
    void layOut(std::size_t rows, std::uint32_t cells, std::uint32_t cellBytes);
    unsigned char* row(std::size_t i) const { return m_data.get() + i * m_cells * m_cellBytes; }
    void put(const recordings::tCells& cells, unsigned char* to) const;

    bool m_withCells;
    std::size_t m_expected, m_capacity = 0;
    std::uint32_t m_cells = 0, m_cellBytes = 1, m_bits = 0;
    tMemory m_data;
    std::vector<double> m_bearing, m_bearingTo, m_turned;
    std::vector<std::int64_t> m_times;
    std::vector<float> m_firstCell, m_cell, m_heading;
    std::vector<std::uint32_t> m_counts, m_sequence;
    double m_range = 0, m_swept = 0;
    std::uint8_t m_reference = 0;
};

#endif
