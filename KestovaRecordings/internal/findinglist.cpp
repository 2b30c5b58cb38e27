#include "KestovaRecordings/internal/findinglist.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>

namespace recordings
{
void tFindingList::add(const char* kind, const tFindingPlace& place, const std::string& detail, bool damage)
{
    add({{kind, damage, place.record, place.offset, place.timeMs, detail}, std::max(place.record, place.last)});
}

void tFindingList::addAt(const char* kind, std::uint64_t offset, const std::string& detail, bool damage)
{
    add({{kind, damage, {}, offset, {}, detail}, 0});
}

void tFindingList::addOfFile(const char* kind, const std::string& detail, bool damage)
{
    add({{kind, damage, {}, {}, {}, detail}, 0});
}

void tFindingList::add(tEntry entry)
{
    const tFinding& finding = entry.finding;
    if (finding.damage)
    {
        ++m_damages;
        if (!hasDamage(finding.kind))
            m_damagingKinds.push_back(finding.kind);
    }
    if (finding.record && !m_entries.empty())
    {
        tEntry& before = m_entries.back();
        if (before.finding.record && before.last + 1 == *finding.record && before.finding.kind == finding.kind &&
            before.finding.detail == finding.detail)
        {
            before.last = entry.last;
            return;
        }
    }
    if (m_entries.size() < cMostFindings)
        m_entries.push_back(std::move(entry));
    else
        ++m_more;
}

void tFindingList::append(const tFindingList& later)
{
    for (const tEntry& entry : later.m_entries)
        add(entry);
    m_more += later.m_more;
}

bool tFindingList::hasDamage(const std::string& kind) const
{
    return std::find(m_damagingKinds.begin(), m_damagingKinds.end(), kind) != m_damagingKinds.end();
}

bool tFindingList::hasDamageBeside(const std::string& kind) const
{
    return std::any_of(m_damagingKinds.begin(), m_damagingKinds.end(),
                       [&](const std::string& each) { return each != kind; });
}

std::vector<tFinding> tFindingList::take(std::uint64_t& more)
{
    std::stable_sort(m_entries.begin(), m_entries.end(),
                     [](const tEntry& a, const tEntry& b) { return a.finding.record < b.finding.record; });
    std::vector<tFinding> findings;
    for (tEntry& entry : m_entries)
    {
        tFinding& finding = findings.emplace_back(std::move(entry.finding));
        if (finding.record && entry.last > *finding.record)
            finding.detail = fmt::format("records {} to {}: {}", *finding.record, entry.last, finding.detail);
    }
    more = m_more;
    m_entries.clear();
    return findings;
}
}  // namespace recordings
