#include "bindings/c/meanpicture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace binding
{
namespace
{
constexpr double cFullTurn = 4'294'967'296.0;
constexpr double cTouch = 1e-4, cTouchTurns = 1e-8;  // of a cell, and of a turn: less is rounding

// Sums of the cells of rings and sectors: of any stretch with four look-ups. They wrap as unsigned numbers do.
class tSums
{
public:
    explicit tSums(const recordings::tPolarImage& image)
        : m_width(image.sectors() + 1), m_sums((image.rings + 1) * m_width)
    {
        for (std::size_t ring = 0; ring < image.rings; ++ring)
        {
            std::uint32_t sum = 0;
            for (std::size_t sector = 0; sector < image.sectors(); ++sector)
            {
                sum += image.ring(ring)[sector];
                m_sums[(ring + 1) * m_width + sector + 1] = m_sums[ring * m_width + sector + 1] + sum;
            }
        }
    }
    std::uint32_t of(std::size_t ring, std::size_t endRing, std::size_t sector, std::size_t endSector) const
    {
        return at(endRing, endSector) - at(ring, endSector) - at(endRing, sector) + at(ring, sector);
    }

private:
    std::uint32_t at(std::size_t ring, std::size_t sector) const { return m_sums[ring * m_width + sector]; }

    std::size_t m_width;
    std::vector<std::uint32_t> m_sums;
};

// What a pixel covers, in pixels and in turns; `to` is behind `from`, by less than a half, or both are whole.
struct tFootprint
{
    double near, far, from, to;
    bool isAll;
};

// `x` and `y` are those of the pixel's corner that is nearest to the upper left, from the middle of the picture.
tFootprint footprintAt(double x, double y)
{
    const double nearX = std::clamp(0.0, x, x + 1), nearY = std::clamp(0.0, y, y + 1);
    const double farX = std::max(std::abs(x), std::abs(x + 1)), farY = std::max(std::abs(y), std::abs(y + 1));
    tFootprint footprint{std::hypot(nearX, nearY), std::hypot(farX, farY), 0, 1, nearX == 0 && nearY == 0};
    if (footprint.isAll)
        return footprint;
    const auto bearing = [](double toX, double toY) { return std::atan2(toX, -toY) / (2 * std::numbers::pi); };
    const double middle = bearing(x + 0.5, y + 0.5);
    double left = 0, right = 0;
    for (const auto& [cornerX, cornerY] :
         std::array<std::array<double, 2>, 4>{{{x, y}, {x + 1, y}, {x, y + 1}, {x + 1, y + 1}}})
    {
        const double off = std::remainder(bearing(cornerX, cornerY) - middle, 1.0);
        left = std::min(left, off);
        right = std::max(right, off);
    }
    footprint.from = middle + left + cTouchTurns;
    footprint.to = middle + right - cTouchTurns;
    return footprint;
}

class tMeans
{
public:
    tMeans(const recordings::tPolarImage& image, double rangeM, std::size_t size)
        : m_image(image), m_sums(image), m_half(static_cast<double>(size) / 2),
          m_ringsPerPixel(rangeM / m_half / image.cellM), m_firstRing(image.firstM / image.cellM)
    {}

    unsigned char at(std::size_t column, std::size_t row) const
    {
        const tFootprint pixel = footprintAt(static_cast<double>(column) - m_half, static_cast<double>(row) - m_half);
        if (pixel.near > m_half)
            return 0;
        const std::size_t first = ringAt(pixel.near * m_ringsPerPixel - m_firstRing + cTouch);
        const std::size_t last = ringAt(std::ceil(pixel.far * m_ringsPerPixel - m_firstRing - cTouch));
        if (first >= last)
            return 0;
        return pixel.isAll ? mean(first, last, 0, m_image.sectors()) : mean(first, last, pixel.from, pixel.to);
    }

private:
    std::size_t ringAt(double ring) const
    {
        return static_cast<std::size_t>(std::clamp(ring, 0.0, static_cast<double>(m_image.rings)));
    }
    // Returns the sector that has this bearing.
    std::size_t sectorAt(double turns) const
    {
        const auto angle =
            static_cast<std::uint32_t>(static_cast<std::uint64_t>((turns - std::floor(turns)) * cFullTurn));
        return static_cast<std::size_t>(std::upper_bound(m_image.starts.begin(), m_image.starts.end(), angle) -
                                        m_image.starts.begin()) -
               1;
    }
    unsigned char mean(std::size_t ring, std::size_t endRing, std::size_t sector, std::size_t endSector) const
    {
        const std::size_t cells = (endRing - ring) * (endSector - sector);
        return static_cast<unsigned char>((m_sums.of(ring, endRing, sector, endSector) + cells / 2) / cells);
    }
    unsigned char mean(std::size_t ring, std::size_t endRing, double from, double to) const
    {
        const std::size_t sector = sectorAt(from), last = sectorAt(to);
        if (sector <= last)
            return mean(ring, endRing, sector, last + 1);
        const std::size_t cells = (endRing - ring) * (m_image.sectors() - sector + last + 1);
        const std::uint64_t sum =
            std::uint64_t{m_sums.of(ring, endRing, sector, m_image.sectors())} + m_sums.of(ring, endRing, 0, last + 1);
        return static_cast<unsigned char>((sum + cells / 2) / cells);
    }

    const recordings::tPolarImage& m_image;
    const tSums m_sums;
    const double m_half, m_ringsPerPixel, m_firstRing;
};
}  // namespace

void drawMean(const recordings::tPolarImage& image, double rangeM, std::size_t size, unsigned char* pixels)
{
    if (image.sectors() == 0 || image.rings == 0)
        return static_cast<void>(std::fill_n(pixels, size * size, 0));
    const tMeans means(image, rangeM, size);
    for (std::size_t row = 0; row < size; ++row)
        for (std::size_t column = 0; column < size; ++column)
            *pixels++ = means.at(column, row);
}
}  // namespace binding
