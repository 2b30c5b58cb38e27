// tPictureTopic: /radar_…/picture/compressed, each turn as `kestova picture` draws it.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_PICTURETOPIC_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_PICTURETOPIC_H

#include <cstdint>
#include <string>

#include "KestovaRecordings/internal/exports/messagetopics.h"
#include "KestovaRecordings/navigation.h"
#include "KestovaRecordings/picture.h"
#include "KestovaRecordings/turn.h"

namespace recordings
{
class tPictureTopic
{
public:
    tPictureTopic(mcap::tMcapWriter& file, const std::string& radar)
        : m_topic(file, "/" + radar + "/picture/compressed", ros::eType::eCompressedImage), m_picture({})
    {}

    void add(const tSpoke& spoke, const tDecodedPlace& place);
    void endTurn(double bearing, const tOwnShip& own);  // where the next one begins

private:
    void write(const tOwnShip& own);

    tTopic m_topic;
    mcap::tCdrWriter m_message;
    tTurn m_turn;
    tPicture m_picture;
    utils::tBearingReference m_reference = utils::eReferenceUnknown;
    std::uint64_t m_firstNs = 0;
    mcap::tTimes m_times{};  // of the last spoke
};
}  // namespace recordings

#endif
