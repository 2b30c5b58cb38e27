// tOffsetHistogram: how often each difference of two times occurred, in bounded memory.
//
// Shapes   a bin is a microsecond wide until there are more differences than bins; then bins become twice as wide, as
//          often as that is needed. The smallest and the greatest difference are exact. A bin keeps the times of its
//          first pair.
// Threads  none; one at a time.
#ifndef KESTOVA_RECORDINGS_INTERNAL_OFFSETHISTOGRAM_H
#define KESTOVA_RECORDINGS_INTERNAL_OFFSETHISTOGRAM_H

#include <cstddef>
#include <cstdint>
#include <unordered_map>

namespace recordings
{
struct tTimePair
{
    std::int64_t aUs, bUs;
};

class tOffsetHistogram
{
public:
    struct tBin
    {
        std::uint64_t count = 0;
        tTimePair first{};
    };
    struct tDeviations
    {
        double p50Us = 0, p99Us = 0, maxUs = 0;
    };

    explicit tOffsetHistogram(std::size_t mostBins) : m_mostBins(mostBins) {}

    void add(const tTimePair& pair)
    {
        const std::int64_t offset = pair.bUs - pair.aUs;
        m_least = offset < m_least ? offset : m_least;
        m_greatest = offset > m_greatest ? offset : m_greatest;
        const std::int64_t number = offset >> m_shift;
        if (m_last == nullptr || number != m_lastNumber)
            find(number, pair);
        ++m_last->count;
        ++m_count;
    }

    std::uint64_t count() const { return m_count; }
    double medianUs() const;  // 0 for no pairs
    // Returns how far the differences are from one, on either side.
    tDeviations deviationsFrom(double offsetUs) const;
    // Returns how many are farther from `offsetUs` than `toleranceUs`; sets `first` to the earliest of them, by A.
    std::uint64_t countBeyond(double offsetUs, double toleranceUs, tTimePair& first) const;

private:
    void find(std::int64_t number, const tTimePair& pair);
    void widen();
    double centre(std::int64_t number) const;

    const std::size_t m_mostBins;
    unsigned m_shift = 0;  // a bin is 2^m_shift microseconds wide
    std::unordered_map<std::int64_t, tBin> m_bins;
    tBin* m_last = nullptr;
    std::int64_t m_lastNumber = 0;
    std::uint64_t m_count = 0;
    std::int64_t m_least = INT64_MAX, m_greatest = INT64_MIN;
};
}  // namespace recordings

#endif
