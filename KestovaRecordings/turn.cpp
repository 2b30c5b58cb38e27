#include "KestovaRecordings/turn.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <utility>

namespace recordings
{
namespace
{
constexpr std::size_t cMostSpokes = 65'536, cMostBytes = 32 * 1024 * 1024, cMostSpares = 64;
constexpr double cFullTurn = 4'294'967'296.0;
constexpr std::uint32_t cFillUpTo = 85'899'345;       // 0.02 turns
constexpr std::uint32_t cThinnest = 65'536;           // of a spoke that begins where it ends
constexpr std::size_t cMostCells = 64 * 1024 * 1024;  // of an image

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
}  // namespace

double tTurn::width(const tHeld& spoke)
{
    return static_cast<std::uint32_t>(spoke.to - spoke.from) / cFullTurn;
}

void tTurn::add(const tSpoke& spoke, double turned, std::uint64_t timeMs)
{
    tHeld held{angleOf(spoke.bearingFrom + turned),
               angleOf(spoke.bearingTo + turned),
               timeMs,
               spoke.firstCellM,
               spoke.cellM,
               {}};
    if (held.to == held.from)
        held.to += cThinnest;
    joinTo(held);
    if (!m_spare.empty())
    {
        held.cells = std::move(m_spare.back());
        m_spare.pop_back();
    }
    held.cells.resize(spoke.cells.count);
    spoke.cells.toBytes(held.cells.data());
    m_bytes += held.cells.size();
    m_covered += width(held);
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
    m_covered -= width(last);
    const std::uint32_t on = next.from - last.from, back = last.from - next.from;
    if (on == 0)
    {
        m_bytes -= last.cells.size();
        m_spare.push_back(std::move(last.cells));
        m_spokes.pop_back();
        return;
    }
    if (on < cFillUpTo)
        last.to = next.from;
    else if (back < cFillUpTo)
        next.to = last.from;
    m_covered += width(last);
}

// What is older than a full turn goes.
void tTurn::limit()
{
    constexpr double cRounding = 1e-6;
    while (m_spokes.size() > 1 && (m_covered - width(m_spokes.front()) >= 1 - cRounding ||
                                   m_spokes.size() > cMostSpokes || m_bytes > cMostBytes))
    {
        tHeld& oldest = m_spokes.front();
        m_covered -= width(oldest);
        m_bytes -= oldest.cells.size();
        if (m_spare.size() < cMostSpares)
            m_spare.push_back(std::move(oldest.cells));
        m_spokes.pop_front();
    }
}

void tTurn::clear()
{
    m_spokes.clear();
    m_covered = 0;
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
    while (count() * static_cast<double>(sectors) > cMostCells)
        image.cellM *= 2;
    image.rings = static_cast<std::size_t>(count());
    return image;
}

tPolarImage tTurn::image() const
{
    tSectors sectors;
    for (std::size_t i = m_spokes.size(); i-- > 0;)
        sectors.fill(m_spokes[i].from, m_spokes[i].to, static_cast<std::ptrdiff_t>(i));
    const std::vector<tStretch> stretches = std::move(sectors).stretches();
    const double range = rangeM() > 0 ? rangeM() : 1;
    tPolarImage image = rings(stretches.size(), range);
    for (const tStretch& stretch : stretches)
        image.starts.push_back(static_cast<std::uint32_t>(stretch.from));
    image.cells.assign(image.rings * image.sectors(), 0);
    std::vector<unsigned char> resampled;
    for (std::size_t sector = 0; sector < stretches.size(); ++sector)
    {
        if (stretches[sector].spoke < 0)
            continue;
        const tHeld& spoke = m_spokes[static_cast<std::size_t>(stretches[sector].spoke)];
        const bool fits = spoke.firstM == image.firstM && cellOf(spoke, range) == image.cellM;
        if (!fits)
            resample(spoke.cells, spoke.firstM, cellOf(spoke, range), image, resampled);
        draw(fits ? spoke.cells : resampled, sector, image);
    }
    return image;
}

void tTurn::draw(const std::vector<unsigned char>& from, std::size_t sector, tPolarImage& image)
{
    for (std::size_t ring = 0; ring < std::min(from.size(), image.rings); ++ring)
        image.cells[ring * image.sectors() + sector] = from[ring];
}
}  // namespace recordings
