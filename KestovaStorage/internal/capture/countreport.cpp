#include "KestovaStorage/internal/capture/countreport.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace pcap
{
namespace
{
constexpr std::uint32_t cNowhere = UINT32_MAX;

// The order of rows.
struct tRank
{
    std::uint32_t count;
    std::uint64_t touched;
    std::uint32_t stream;
    bool standsBefore(const tRank& other) const
    {
        return count != other.count ? count > other.count : touched > other.touched;
    }
};

tRank rankOf(const tDatagramCounts& table, std::uint32_t stream)
{
    return {table.streams()[stream].count, table.streams()[stream].touched, stream};
}

// The streams that have changed, as their rows will stand.
std::vector<tRank> changedInOrder(const tDatagramCounts& table)
{
    std::vector<tRank> changed;
    changed.reserve(table.changedStreams().size());
    for (const std::uint32_t stream : table.changedStreams())
        changed.push_back(rankOf(table, stream));
    std::ranges::sort(changed, [](const tRank& a, const tRank& b) { return a.standsBefore(b); });
    return changed;
}

void addKinds(std::set<std::string>& types, unsigned kinds)
{
    if (types.size() == static_cast<std::size_t>(std::popcount(kinds)))
        return;
    for (unsigned kind = 0; kind < cKindCount; ++kind)
        if ((kinds >> kind & 1) != 0)
            types.insert(kindText(static_cast<eMessageKind>(kind)));
}

// The lengths that have changed, in the order in which they last occurred: among equals the latest stands last.
std::vector<std::uint32_t> lengthsInOrder(const tDatagramCounts& table)
{
    std::vector<std::uint32_t> changed = table.changedLengths();
    const auto touched = [&](std::uint32_t place) { return table.lengths()[place].touched; };
    if (!std::ranges::is_sorted(changed, {}, touched))
        std::ranges::sort(changed, {}, touched);
    return changed;
}
}  // namespace

void tCountReport::clear()
{
    m_udpsInfoOut.clear();
    m_streamAt.clear();
    m_positionOf.clear();
    m_lengthEntries.clear();
}

const std::vector<tUdpMulticast>& tCountReport::update(tDatagramCounts& table)
{
    if (table.changedStreams().empty())
        return m_udpsInfoOut;
    mergeChanged(table);
    updateLengths(table);
    for (const std::uint32_t place : table.changedStreams())
    {
        const tCountedStream& stream = table.streams()[place];
        tUdpMulticast& row = m_udpsInfoOut[m_positionOf[place]];
        row.count = stream.count;
        addKinds(row.types, stream.kinds);
    }
    table.clearChanges();
    return m_udpsInfoOut;
}

// A merge from the back: counts only rise, so changed rows only move to the front; new ones come from behind the last.
void tCountReport::mergeChanged(const tDatagramCounts& table)
{
    const std::size_t known = m_udpsInfoOut.size();
    std::vector<tRank> changed = changedInOrder(table);
    makeRoom(table.streams().size());
    std::vector<tUdpMulticast> taken;  // of the changed rows those that are known, in the same order
    taken.reserve(std::min(known, changed.size()));
    std::size_t to = m_udpsInfoOut.size() > known ? m_udpsInfoOut.size() : 0;  // behind the position to fill next
    for (const tRank& rank : changed)
        if (rank.stream < known)
            to = std::max<std::size_t>(to, takeOut(rank.stream, taken) + 1);
    for (std::size_t from = to; !changed.empty();)
    {
        while (from > 0 && m_streamAt[from - 1] == cNowhere)
            --from;
        --to;
        if (from > 0 && changed.back().standsBefore(rankOf(table, m_streamAt[from - 1])))
        {
            --from;
            put(to, std::move(m_udpsInfoOut[from]), m_streamAt[from]);
            continue;
        }
        const std::uint32_t stream = changed.back().stream;
        const tDestination key = table.streams()[stream].key;
        put(to, stream < known ? std::move(taken.back()) : tUdpMulticast(addressTextOf(key), portOf(key)), stream);
        if (stream < known)
            taken.pop_back();
        changed.pop_back();
    }
}

void tCountReport::makeRoom(std::size_t rows)
{
    m_udpsInfoOut.resize(rows);
    m_streamAt.resize(rows, cNowhere);
    m_positionOf.resize(rows, cNowhere);
}

std::uint32_t tCountReport::takeOut(std::uint32_t stream, std::vector<tUdpMulticast>& taken)
{
    const std::uint32_t position = m_positionOf[stream];
    taken.push_back(std::move(m_udpsInfoOut[position]));
    m_streamAt[position] = cNowhere;
    return position;
}

void tCountReport::put(std::size_t position, tUdpMulticast&& row, std::uint32_t stream)
{
    if (&m_udpsInfoOut[position] != &row)  // between two changed rows others may keep their places
        m_udpsInfoOut[position] = std::move(row);
    m_streamAt[position] = stream;
    m_positionOf[stream] = static_cast<std::uint32_t>(position);
}

void tCountReport::updateLengths(const tDatagramCounts& table)
{
    const std::size_t known = m_lengthEntries.size();
    m_lengthEntries.resize(table.lengths().size());
    for (const std::uint32_t place : lengthsInOrder(table))
    {
        const tCountedLength& length = table.lengths()[place];
        auto& entries = m_udpsInfoOut[m_positionOf[length.stream]].lengths;
        const int occurrences = static_cast<int>(length.occurrences);
        if (place >= known)
        {
            m_lengthEntries[place] = entries.emplace(occurrences, static_cast<int>(length.length));
            continue;
        }
        auto entry = entries.extract(m_lengthEntries[place]);
        entry.key() = occurrences;
        m_lengthEntries[place] = entries.insert(std::move(entry));
    }
}
}  // namespace pcap
