// tEchoTopic: /radar_…/echoes, the strong echoes of a turn as points.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_ECHOTOPIC_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_ECHOTOPIC_H

#include <cstdint>
#include <string>

#include "KestovaRecordings/internal/exports/messagetopics.h"

namespace recordings
{
// x forward and y left of the bow (or north and west), in metres, z 0, and the value of the cell. Cells without a
// length are 1 m long. A turn is one message, several where it has more than a million points.
class tEchoTopic
{
public:
    // Cells from this share of full scale on are echoes.
    tEchoTopic(mcap::tMcapWriter& file, const std::string& radar, double threshold)
        : m_topic(file, "/" + radar + "/echoes", ros::eType::ePointCloud2), m_threshold(threshold)
    {}

    void add(const tSpoke& spoke, const tDecodedPlace& place);
    void endTurn() { write(); }

private:
    static constexpr std::size_t cPointStep = 16, cMostPoints = 1'000'000;

    void addPoint(double distanceM, std::uint32_t value);
    void write();

    tTopic m_topic;
    const double m_threshold;
    mcap::tCdrWriter m_message;
    bool m_isBegun = false;  // the turn has a spoke
    std::uint64_t m_firstNs = 0;
    mcap::tTimes m_times{};  // of the last spoke
    utils::tBearingReference m_reference = utils::eReferenceUnknown;
    double m_x = 0, m_y = 0;  // of the direction of the present spoke
    std::string m_points;
};
}  // namespace recordings

#endif
