// tSectorTopic: /radar_…/sector, spokes as RadarSector messages.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_SECTORTOPIC_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_SECTORTOPIC_H

#include <cstdint>
#include <optional>
#include <string>

#include "KestovaRecordings/internal/exports/messagetopics.h"
#include "KestovaRecordings/internal/spokesteps.h"

namespace recordings
{
// Returns the frame of a radar's messages.
const char* frameOf(utils::tBearingReference reference);
// Returns when the radar received a spoke or, where it does not say, when that was recorded, in ns.
std::uint64_t receivedNs(const tSpoke& spoke, const tDecodedPlace& place);

// A message has 64 spokes at most; it ends before a missing spoke, at bearing 0, and where cells change.
class tSectorTopic
{
public:
    tSectorTopic(mcap::tMcapWriter& file, const std::string& radar)
        : m_topic(file, "/" + radar + "/sector", ros::eType::eRadarSector)
    {}

    void add(const tSpoke& spoke, const tDecodedPlace& place);
    void finish() { write(); }

private:
    static constexpr std::uint32_t cMostSpokes = 64;

    // The cells that all spokes of a message have in common.
    struct tForm
    {
        double firstCellM, cellM;
        std::uint32_t count;
        utils::tBearingReference reference;
        bool operator==(const tForm&) const = default;
    };
    void write();
    void measureTurn(std::uint64_t ns);

    tTopic m_topic;
    mcap::tCdrWriter m_message;
    tSpokeSteps m_steps;
    tForm m_form{};
    std::uint32_t m_spokes = 0;
    double m_firstBearing = 0, m_lastBearing = 0, m_width = 0;  // in turns; width of the first spoke
    std::uint64_t m_firstNs = 0, m_lastNs = 0;                  // when the radar received them
    mcap::tTimes m_times{};                                     // of the last spoke
    std::string m_echoes;                                       // of the spokes, as the message has them
    std::optional<std::uint64_t> m_zeroNs;                      // when bearing 0 passed last
    std::int64_t m_turnNs = 0;                                  // how long the last turn took; 0: not known
};
}  // namespace recordings

#endif
