// tRadarNames: what the radars of a recording are called in the names of topics.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_RADARNAMES_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_RADARNAMES_H

#include <set>
#include <string>
#include <vector>

#include "KestovaRecordings/streamcounts.h"

namespace recordings
{
class tRadarNames
{
public:
    // Reads the sheets of the data files.
    explicit tRadarNames(const std::vector<std::string>& files);

    // Returns "radar_A1_2_1" for spokes of radar A1:2 with the id 1, by their group, or "radar_239_17_0_1_6001" where
    // no sheet names it, or another group of that radar has the name already. Never the same twice.
    std::string nameFor(const tStreamKey& stream);

private:
    struct tRadar
    {
        std::string name;
        std::set<std::string> addresses;
        bool operator<(const tRadar& other) const { return name < other.name; }
    };
    std::set<tRadar> m_radars;
    std::set<std::string> m_used;
};
}  // namespace recordings

#endif
