#include "KestovaRecordings/scanconverter.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <numbers>

namespace recordings
{
namespace
{
constexpr std::size_t cLargest = 16'384, cFewestBins = 256, cMostBins = 65'536;
constexpr double cFullTurn = 4'294'967'296.0;

std::uint32_t angleOf(double radians)
{
    return static_cast<std::uint32_t>(std::llround(radians / (2 * std::numbers::pi) * cFullTurn));
}

// Sixteen cells are looked at with one instruction where the processor can.
using tSixteen = unsigned char __attribute__((vector_size(16)));
using tTwoWords = std::uint64_t __attribute__((vector_size(16)));

tSixteen sixteen(const unsigned char* cells)
{
    tSixteen loaded;
    std::memcpy(&loaded, cells, sizeof loaded);
    return loaded;
}

tSixteen brighter(tSixteen a, tSixteen b)
{
    return a > b ? a : b;
}

unsigned char brightestIn(tSixteen cells)
{
    const tTwoWords words = reinterpret_cast<tTwoWords>(cells);
    cells = brighter(cells, reinterpret_cast<tSixteen>(__builtin_shufflevector(words, words, 1, 0)));
    for (const int shift : {32, 16, 8})
        cells = brighter(cells, reinterpret_cast<tSixteen>(reinterpret_cast<tTwoWords>(cells) >> shift));
    return static_cast<unsigned char>(reinterpret_cast<tTwoWords>(cells)[0]);
}

// Cells that follow one another in some rings that do.
class tPatch
{
public:
    tPatch(const std::vector<unsigned char>& cells, std::size_t apart)
        : m_cells(cells.data()), m_count(cells.size()), m_apart(apart)
    {}

    // Returns the brightest of `count` cells from number `at` on, and of those in the next rings; there are `rings`, at
    // least one.
    unsigned char brightest(std::size_t at, std::size_t count, std::size_t rings) const
    {
        if (at + (rings - 1) * m_apart + std::max(count, cLanes) > m_count)
            return slowly(at, count, rings);
        return count > cLanes ? ofMany(at, count, rings) : ofFew(at, count, rings);
    }

private:
    static constexpr std::size_t cLanes = sizeof(tSixteen), cTogether = 4;
    static constexpr unsigned char cMask[2 * cLanes] = {255, 255, 255, 255, 255, 255, 255, 255,
                                                        255, 255, 255, 255, 255, 255, 255, 255};

    // Four rings at a time, the last one again where there are fewer: what is the same for every pixel is quick.
    unsigned char ofFew(std::size_t at, std::size_t count, std::size_t rings) const
    {
        const unsigned char *cells = m_cells + at, *const last = cells + (rings - 1) * m_apart;
        tSixteen most = sixteen(last);
        for (std::size_t ring = 0; ring < rings; ring += cTogether, cells += cTogether * m_apart)
        {
            const tSixteen inner = brighter(sixteen(cells), sixteen(std::min(cells + m_apart, last)));
            const tSixteen outer =
                brighter(sixteen(std::min(cells + 2 * m_apart, last)), sixteen(std::min(cells + 3 * m_apart, last)));
            most = brighter(most, brighter(inner, outer));
        }
        return brightestIn(most & sixteen(cMask + cLanes - count));
    }

    unsigned char ofMany(std::size_t at, std::size_t count, std::size_t rings) const
    {
        tSixteen most{};
        for (; rings > 0; --rings, at += m_apart)
        {
            for (std::size_t i = 0; i + cLanes < count; i += cLanes)
                most = brighter(most, sixteen(m_cells + at + i));
            most = brighter(most, sixteen(m_cells + at + count - cLanes));
        }
        return brightestIn(most);
    }

    // Where sixteen cells do not lie behind every one.
    unsigned char slowly(std::size_t at, std::size_t count, std::size_t rings) const
    {
        unsigned char most = 0;
        for (; rings > 0; --rings, at += m_apart)
            for (std::size_t i = at; i < at + count; ++i)
                most = std::max(most, m_cells[i]);
        return most;
    }

    const unsigned char* m_cells;
    std::size_t m_count, m_apart;
};

// The eight pixels that are each other's reflections. Bearings count clockwise from up: the axis nearest to the pixel,
// and on which side of it the pixel is.
struct tReflection
{
    bool alongX, isLeft, isUp;
    std::uint32_t axis;
    bool clockwise;
};
constexpr std::uint32_t cQuarter = 0x40000000;
constexpr tReflection cReflections[] = {
    {false, false, true, 0, true},
    {false, true, true, 0, false},
    {true, false, true, cQuarter, false},
    {true, false, false, cQuarter, true},
    {false, false, false, 2 * cQuarter, false},
    {false, true, false, 2 * cQuarter, true},
    {true, true, false, 3 * cQuarter, false},
    {true, true, true, 3 * cQuarter, true},
};
}  // namespace

tScanConverter::tScanConverter(std::size_t size) : m_size(std::clamp<std::size_t>(size, 1, cLargest))
{
    measure();
}

// Pixels of the eighth from the axis upwards to the diagonal: `major` is the distance along the axis, `minor` that from
// it, in pixels; the middle of a picture of an even size lies between pixels.
void tScanConverter::measure()
{
    const double offset = m_size % 2 == 0 ? 0.5 : 0.0;
    const std::size_t half = (m_size + 1) / 2;
    m_footprints.reserve(half * (half + 1) / 2);
    for (std::size_t major = 0; major < half; ++major)
    {
        for (std::size_t minor = 0; minor <= major; ++minor)
        {
            const double x = static_cast<double>(major) + offset, y = static_cast<double>(minor) + offset;
            const double nearX = std::max(x - 0.5, 0.0), nearY = std::max(y - 0.5, 0.0);
            const bool inside = x < 0.5;  // own ship is within the pixel: it covers the whole turn
            const double left = inside ? 0 : std::atan2(y - 0.5, y < 0.5 ? nearX : x + 0.5);
            const double right = inside ? 0 : std::atan2(y + 0.5, x - 0.5);
            m_footprints.push_back({static_cast<float>(std::hypot(nearX, nearY)),
                                    static_cast<float>(std::hypot(x + 0.5, y + 0.5)), angleOf(left), angleOf(right)});
        }
    }
}

void tScanConverter::chooseRings(const tPolarImage& image, double rangeM)
{
    const double ringsPerPixel = 2 * rangeM / static_cast<double>(m_size) / image.cellM;
    const double before = image.firstM / image.cellM;
    const double most = static_cast<double>(std::min<std::size_t>(image.rings, UINT16_MAX));
    constexpr double cTouch = 1e-4;  // of a cell: less is rounding
    m_rings.resize(m_footprints.size());
    for (std::size_t i = 0; i < m_footprints.size(); ++i)
    {
        const double first = m_footprints[i].near * ringsPerPixel - before + cTouch;
        const double last = m_footprints[i].far * ringsPerPixel - before - cTouch;
        m_rings[i] = {static_cast<std::uint16_t>(std::clamp(first, 0.0, most)),
                      static_cast<std::uint16_t>(std::clamp(last + 1, 0.0, most))};
    }
}

// A table that is larger than needed would leave the processor's cache.
void tScanConverter::indexSectors(const tPolarImage& image)
{
    const std::size_t bins = std::clamp(std::bit_ceil(image.sectors() * 4), cFewestBins, cMostBins);
    m_binShift = 32 - static_cast<unsigned>(std::bit_width(bins - 1));
    m_sectorAt.resize(bins);
    std::uint32_t sector = 0;
    for (std::size_t bin = 0; bin < bins; ++bin)
    {
        while (sector + 1 < image.sectors() && image.starts[sector + 1] <= bin << m_binShift)
            ++sector;
        m_sectorAt[bin] = sector;
    }
}

std::uint32_t tScanConverter::sectorAt(std::uint32_t angle, const std::vector<std::uint32_t>& starts) const
{
    std::uint32_t sector = m_sectorAt[angle >> m_binShift];
    while (sector + 1 < starts.size() && starts[sector + 1] <= angle)
        ++sector;
    return sector;
}

unsigned char tScanConverter::brightest(const tPolarImage& image, std::size_t eighth, std::uint32_t left,
                                        std::uint32_t right) const
{
    const tRings rings = m_rings[eighth];
    const tPatch patch(image.cells, image.sectors());
    const std::size_t first = sectorAt(left, image.starts), last = sectorAt(right - 1, image.starts);
    const std::size_t ring = rings.first * image.sectors(), count = rings.end - rings.first;
    if (right - 1 >= left)
        return patch.brightest(ring + first, last + 1 - first, count);
    return std::max(patch.brightest(ring + first, image.sectors() - first, count),
                    patch.brightest(ring, last + 1, count));
}

void tScanConverter::convert(const tPolarImage& image, double rangeM, unsigned char* pixels)
{
    std::memset(pixels, 0, m_size * m_size);
    if (image.rings == 0 || image.sectors() == 0)
        return;
    chooseRings(image, rangeM);
    indexSectors(image);
    const float edge = static_cast<float>(m_size) / 2;
    const std::size_t half = (m_size + 1) / 2, low = half - 1, high = m_size / 2;
    std::size_t eighth = 0;
    for (std::size_t major = 0; major < half; ++major)
    {
        for (std::size_t minor = 0; minor <= major; ++minor, ++eighth)
        {
            const tFootprint print = m_footprints[eighth];
            if (print.near > edge || m_rings[eighth].first >= m_rings[eighth].end)
                continue;
            for (const tReflection& side : cReflections)
            {
                const std::size_t x = side.alongX ? major : minor, y = side.alongX ? minor : major;
                const std::size_t column = side.isLeft ? low - x : high + x, row = side.isUp ? low - y : high + y;
                const std::uint32_t left = side.clockwise ? print.left : 0 - print.right;
                const std::uint32_t right = side.clockwise ? print.right : 0 - print.left;
                pixels[row * m_size + column] = brightest(image, eighth, side.axis + left, side.axis + right);
            }
        }
    }
}
}  // namespace recordings
