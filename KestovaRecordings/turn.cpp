#include "KestovaRecordings/turn.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <utility>

namespace recordings
{
namespace
{
constexpr std::size_t cMostSpokes = 65'536, cMostBytes = 128 * 1024 * 1024, cMostSpares = 64;
constexpr double cFullTurn = 4'294'967'296.0;
constexpr std::uint32_t cFillUpTo = 85'899'345;       // 0.02 turns
constexpr std::uint32_t cThinnest = 65'536;           // of a spoke that begins where it ends
constexpr std::size_t cMostCells = 64 * 1024 * 1024;  // of an image
constexpr double cMostRings = 65'535;

std::uint32_t angleOf(double turns)
{
    return static_cast<std::uint32_t>(
        static_cast<std::uint64_t>(std::llround((turns - std::floor(turns)) * cFullTurn)));
}

// A stretch of the turn, and the spoke that shows there; -1 for none.
struct tStretch
{
    std::uint64_t from, to;  // from 0 to 2^32
    std::ptrdiff_t spoke;
};

// The stretches of the turn that are not filled yet, in their order.
class tSectors
{
public:
    // The spoke shows where none before it did.
    void fill(std::uint32_t from, std::uint32_t to, std::ptrdiff_t spoke)
    {
        const auto end = static_cast<std::uint64_t>(cFullTurn);
        if (to > from)
            fillStretch(from, to, spoke);
        else
        {
            fillStretch(from, end, spoke);
            fillStretch(0, to, spoke);
        }
    }
    // Returns all stretches in their order.
    std::vector<tStretch> stretches() &&
    {
        for (const auto& [from, to] : m_holes)
            m_filled.push_back({from, to, -1});
        std::sort(m_filled.begin(), m_filled.end(),
                  [](const tStretch& a, const tStretch& b) { return a.from < b.from; });
        return std::move(m_filled);
    }

private:
    void fillStretch(std::uint64_t from, std::uint64_t to, std::ptrdiff_t spoke)
    {
        auto hole = m_holes.upper_bound(from);
        if (hole != m_holes.begin() && std::prev(hole)->second > from)
            --hole;
        while (hole != m_holes.end() && hole->first < to)
        {
            const auto [begin, end] = *hole;
            hole = m_holes.erase(hole);
            if (begin < from)
                m_holes.emplace_hint(hole, begin, from);
            if (to < end)
                m_holes.emplace_hint(hole, to, end);
            m_filled.push_back({std::max(begin, from), std::min(end, to), spoke});
        }
    }

    std::map<std::uint64_t, std::uint64_t> m_holes{{0, static_cast<std::uint64_t>(cFullTurn)}};
    std::vector<tStretch> m_filled;
};

// Returns the stretches of the turn with the latest spoke of each.
template <typename tSpokes>
std::vector<tStretch> stretchesOf(const tSpokes& spokes)
{
    tSectors sectors;
    for (std::size_t i = spokes.size(); i-- > 0;)
        sectors.fill(spokes[i].from, spokes[i].to, static_cast<std::ptrdiff_t>(i));
    return std::move(sectors).stretches();
}

// Returns the spoke's cells by rings of the image: of several that touch a ring the brightest.
void resample(const std::vector<unsigned char>& cells, double firstM, double cellM, const tPolarImage& image,
              std::vector<unsigned char>& rings)
{
    rings.assign(image.rings, 0);
    const auto ringAt = [&](double metres) { return (metres - image.firstM) / image.cellM; };
    for (std::size_t i = 0; i < cells.size(); ++i)
    {
        const double near = ringAt(firstM + static_cast<double>(i) * cellM);
        const double far = ringAt(firstM + static_cast<double>(i + 1) * cellM);
        const auto end = static_cast<std::size_t>(std::clamp(std::ceil(far - 1e-6), 0.0, double(image.rings)));
        for (auto ring = static_cast<std::size_t>(std::clamp(near + 1e-6, 0.0, double(image.rings))); ring < end;
             ++ring)
            rings[ring] = std::max(rings[ring], cells[i]);
    }
}
// Lays sectors into the rings of an image, 64 at a time: they share the cache lines.
class tRingLayer
{
public:
    explicit tRingLayer(tPolarImage& image) : m_image(image), m_dark(image.rings) {}

    // Memory for the cells of the next sector, until it is laid.
    std::vector<unsigned char>& room() { return m_rooms[m_count]; }
    // `cells` are as many as there are rings; null: dark.
    void add(const unsigned char* cells)
    {
        m_cells[m_count++] = cells != nullptr ? cells : m_dark.data();
        if (m_count == cTogether)
            lay();
    }
    void lay()
    {
        for (std::size_t ring = 0; ring < m_image.rings && m_count != 0; ++ring)
        {
            unsigned char* const to = &m_image.cells[ring * m_image.sectors() + m_first];
            for (std::size_t i = 0; i < m_count; ++i)
                to[i] = m_cells[i][ring];
        }
        m_first += m_count;
        m_count = 0;
    }

private:
    static constexpr std::size_t cTogether = 64;

    tPolarImage& m_image;
    const std::vector<unsigned char> m_dark;
    std::array<std::vector<unsigned char>, cTogether> m_rooms;
    std::array<const unsigned char*, cTogether> m_cells{};
    std::size_t m_first = 0, m_count = 0;
};
}  // namespace

double tTurn::width(const tHeld& spoke)
{
    return static_cast<std::uint32_t>(spoke.to - spoke.from) / cFullTurn;
}

void tTurn::add(const tSpoke& spoke, double turned, std::uint64_t timeMs)
{
    tHeld held{angleOf(spoke.bearingFrom + turned),
               angleOf(spoke.bearingTo + turned),
               0,
               timeMs,
               spoke.firstCellM,
               spoke.cellM,
               {}};
    if (held.to == held.from)
        held.to += cThinnest;
    constexpr std::uint32_t cHalfTurn = 0x8000'0000;
    if (held.to - held.from > cHalfTurn)  // from end to start: an antenna that turns backwards
        std::swap(held.from, held.to);
    joinTo(held);
    if (!m_spare.empty())
    {
        held.cells = std::move(m_spare.back());
        m_spare.pop_back();
    }
    held.cells.resize(spoke.cells.count);
    spoke.cells.toBytes(held.cells.data());
    m_bytes += held.cells.size();
    m_spokes.push_back(std::move(held));
    limit();
}

// The sector of a spoke ends where the next one begins, if that is near. An antenna that turns backwards lays the next
// one before it; one that stands replaces its spoke.
void tTurn::joinTo(tHeld& next)
{
    if (m_spokes.empty())
        return;
    tHeld& last = m_spokes.back();
    const std::uint32_t on = next.from - last.from, back = last.from - next.from;
    if (on == 0)
    {
        m_bytes -= last.cells.size();
        m_spare.push_back(std::move(last.cells));
        m_spokes.pop_back();
        return;
    }
    last.step = width(last);
    if (on < cFillUpTo)
    {
        last.to = next.from;
        last.step = on / cFullTurn;
    }
    else if (back < cFillUpTo)
    {
        if (back > next.to - next.from)
            next.to = last.from;
        last.step = -(back / cFullTurn);
    }
    m_swept += last.step;
}

void tTurn::endAt(double bearing)
{
    if (m_spokes.empty())
        return;
    tHeld& last = m_spokes.back();
    const std::uint32_t on = angleOf(bearing) - last.from;
    if (on != 0 && on < cFillUpTo)
        last.to = last.from + on;
}

void tTurn::rotate(double turns)
{
    const std::uint32_t by = angleOf(turns);
    for (tHeld& spoke : m_spokes)
    {
        spoke.from += by;
        spoke.to += by;
    }
}

double tTurn::covered() const
{
    return m_spokes.empty() ? 0 : std::min(std::abs(m_swept) + width(m_spokes.back()), 1.0);
}

double tTurn::shown() const
{
    std::uint64_t sum = 0;
    for (const tStretch& stretch : stretchesOf(m_spokes))
        sum += stretch.spoke < 0 ? 0 : stretch.to - stretch.from;
    return static_cast<double>(sum) / cFullTurn;
}

// What is older than a full turn goes.
void tTurn::limit()
{
    constexpr double cRounding = 1e-6;
    const auto isWholeWithout = [&](const tHeld& oldest) {
        return std::abs(m_swept - oldest.step) + width(m_spokes.back()) >= 1 - cRounding;
    };
    while (m_spokes.size() > 1 &&
           (isWholeWithout(m_spokes.front()) || m_spokes.size() > cMostSpokes || m_bytes > cMostBytes))
    {
        tHeld& oldest = m_spokes.front();
        m_swept -= oldest.step;
        m_bytes -= oldest.cells.size();
        if (m_spare.size() < cMostSpares)
            m_spare.push_back(std::move(oldest.cells));
        m_spokes.pop_front();
    }
}

void tTurn::clear()
{
    m_spokes.clear();
    m_swept = 0;
    m_bytes = 0;
}

double tTurn::rangeM() const
{
    double range = 0;
    for (const tHeld& spoke : m_spokes)
        range = std::max(range, spoke.cellM > 0 ? spoke.firstM + spoke.cellM * double(spoke.cells.size()) : 0);
    return range;
}

double tTurn::cellOf(const tHeld& spoke, double range)
{
    return spoke.cellM > 0 ? spoke.cellM : range / static_cast<double>(std::max<std::size_t>(spoke.cells.size(), 1));
}

// Rings as narrow as the shortest cells, as far as memory allows.
tPolarImage tTurn::rings(std::size_t sectors, double range) const
{
    tPolarImage image;
    image.firstM = image.cellM = range;
    for (const tHeld& spoke : m_spokes)
    {
        image.firstM = std::min(image.firstM, spoke.firstM);
        image.cellM = std::min(image.cellM, cellOf(spoke, range));
    }
    const auto count = [&] { return std::round((range - image.firstM) / image.cellM); };
    while (count() > cMostRings || count() * static_cast<double>(sectors) > cMostCells)
        image.cellM *= 2;
    image.rings = static_cast<std::size_t>(count());
    return image;
}

// Cells of the spoke by rings of the image, as many as that has.
const unsigned char* tTurn::cellsOf(const tHeld& spoke, const tPolarImage& image, double range,
                                    std::vector<unsigned char>& resampled) const
{
    if (spoke.firstM == image.firstM && cellOf(spoke, range) == image.cellM && spoke.cells.size() == image.rings)
        return spoke.cells.data();
    resample(spoke.cells, spoke.firstM, cellOf(spoke, range), image, resampled);
    return resampled.data();
}

tPolarImage tTurn::image() const
{
    const std::vector<tStretch> stretches = stretchesOf(m_spokes);
    const double range = rangeM() > 0 ? rangeM() : 1;
    tPolarImage image = rings(stretches.size(), range);
    for (const tStretch& stretch : stretches)
        image.starts.push_back(static_cast<std::uint32_t>(stretch.from));
    image.cells.resize(image.rings * image.sectors());
    tRingLayer layer(image);
    for (const tStretch& stretch : stretches)
    {
        std::vector<unsigned char>& room = layer.room();
        if (stretch.spoke < 0)
            layer.add(nullptr);
        else
            layer.add(cellsOf(m_spokes[static_cast<std::size_t>(stretch.spoke)], image, range, room));
    }
    layer.lay();
    return image;
}
}  // namespace recordings
