#include "KestovaRecordings/scanconverter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace recordings
{
namespace
{
constexpr std::size_t cLargest = 16'384, cBins = 65'536;
constexpr double cFullTurn = 4'294'967'296.0;

std::uint32_t angleOf(double radians)
{
    return static_cast<std::uint32_t>(std::llround(radians / (2 * std::numbers::pi) * cFullTurn));
}

// Sixteen cells are looked at with one instruction where the processor can.
using tSixteen = unsigned char __attribute__((vector_size(16)));

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
    cells = brighter(cells, __builtin_shufflevector(cells, cells, 8, 9, 10, 11, 12, 13, 14, 15, 0, 0, 0, 0, 0, 0, 0, 0));
    cells = brighter(cells, __builtin_shufflevector(cells, cells, 4, 5, 6, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    cells = brighter(cells, __builtin_shufflevector(cells, cells, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    return std::max(cells[0], cells[1]);
}

// Of `count` cells in each of some rings, which lie `apart`.
class tPatch
{
public:
    tPatch(const std::vector<unsigned char>& cells, std::size_t apart)
        : m_cells(cells.data()), m_count(cells.size()), m_apart(apart)
    {
    }

    unsigned char brightest(std::size_t at, std::size_t count, std::size_t rings) const
    {
        if (at + (rings - 1) * m_apart + std::max(count, sizeof(tSixteen)) > m_count)
            return slowly(at, count, rings);
        tSixteen most{};
        for (; rings > 0; --rings, at += m_apart)
        {
            const unsigned char* cells = m_cells + at;
            std::size_t left = count;
            for (; left > sizeof(tSixteen); left -= sizeof(tSixteen), cells += sizeof(tSixteen))
                most = brighter(most, sixteen(cells));
            most = brighter(most, sixteen(cells) & sixteen(cMask + sizeof(tSixteen) - left));
        }
        return brightestIn(most);
    }

private:
    static constexpr unsigned char cMask[2 * sizeof(tSixteen)] = {255, 255, 255, 255, 255, 255, 255, 255,
                                                                  255, 255, 255, 255, 255, 255, 255, 255};

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
}  // namespace

tScanConverter::tScanConverter(std::size_t size)
    : m_size(std::clamp<std::size_t>(size, 1, cLargest)), m_sectorAt(cBins + 1)
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
    const double metresPerPixel = 2 * rangeM / static_cast<double>(m_size);
    const double most = static_cast<double>(std::min<std::size_t>(image.rings, UINT16_MAX));
    m_rings.resize(m_footprints.size());
    for (std::size_t i = 0; i < m_footprints.size(); ++i)
    {
        const double first = (m_footprints[i].near * metresPerPixel - image.firstM) / image.cellM;
        const double end = (m_footprints[i].far * metresPerPixel - image.firstM) / image.cellM;
        m_rings[i] = {static_cast<std::uint16_t>(std::clamp(first, 0.0, most)),
                      static_cast<std::uint16_t>(std::clamp(std::ceil(end), 0.0, most))};
    }
}

void tScanConverter::indexSectors(const tPolarImage& image)
{
    std::uint32_t sector = 0;
    for (std::size_t bin = 0; bin < cBins; ++bin)
    {
        while (sector + 1 < image.sectors() && image.starts[sector + 1] <= bin << 16)
            ++sector;
        m_sectorAt[bin] = sector;
    }
}

std::uint32_t tScanConverter::sectorAt(std::uint32_t angle, const std::vector<std::uint32_t>& starts) const
{
    std::uint32_t sector = m_sectorAt[angle >> 16];
    while (sector + 1 < starts.size() && starts[sector + 1] <= angle)
        ++sector;
    return sector;
}

unsigned char tScanConverter::brightest(const tPolarImage& image, std::size_t eighth, std::uint32_t left,
                                        std::uint32_t right) const
{
    const tRings rings = m_rings[eighth];
    if (rings.first >= rings.end)
        return 0;
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
    constexpr std::uint32_t cQuarter = 0x40000000;
    const float edge = static_cast<float>(m_size) / 2;
    const std::size_t half = (m_size + 1) / 2, low = half - 1, high = m_size / 2;
    for (std::size_t row = 0; row < m_size; ++row)
    {
        const bool up = row <= low;
        const std::size_t y = up ? low - row : row - high;
        for (std::size_t column = 0; column < m_size; ++column)
        {
            const bool isLeft = column < high;
            const std::size_t x = isLeft ? low - column : column - high;
            const bool alongX = x >= y;
            const std::size_t major = std::max(x, y), minor = std::min(x, y);
            const tFootprint& print = footprint(major, minor);
            if (print.near > edge)
                continue;
            const std::size_t eighth = static_cast<std::size_t>(&print - m_footprints.data());
            // Bearings count clockwise from up. The axis nearest to the pixel, and on which side of it the pixel is.
            const std::uint32_t axis = alongX ? (isLeft ? 3 * cQuarter : cQuarter) : (up ? 0 : 2 * cQuarter);
            const bool clockwise = alongX ? up == isLeft : up != isLeft;
            const std::uint32_t left = clockwise ? axis + print.left : axis - print.right;
            const std::uint32_t right = clockwise ? axis + print.right : axis - print.left;
            pixels[row * m_size + column] = brightest(image, eighth, left, right);
        }
    }
}
}  // namespace recordings
