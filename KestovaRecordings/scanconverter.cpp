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

unsigned char brightestOf(const unsigned char* cells, std::size_t first, std::size_t end)
{
    unsigned char most = 0;
    for (std::size_t i = first; i < end; ++i)
        most = std::max(most, cells[i]);
    return most;
}
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
    const std::uint32_t first = sectorAt(left, image.starts), last = sectorAt(right - 1, image.starts);
    const bool overZero = right - 1 < left;
    unsigned char most = 0;
    for (std::size_t ring = m_rings[eighth].first; ring < m_rings[eighth].end; ++ring)
    {
        const unsigned char* const cells = image.ring(ring);
        if (overZero)
            most = std::max({most, brightestOf(cells, first, image.sectors()), brightestOf(cells, 0, last + 1)});
        else
            most = std::max(most, brightestOf(cells, first, last + 1));
    }
    return most;
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
