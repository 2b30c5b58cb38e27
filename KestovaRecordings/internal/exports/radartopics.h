// tRadarTopics: what the spokes of one radar become.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_RADARTOPICS_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_RADARTOPICS_H

#include <optional>
#include <string>

#include "KestovaRecordings/internal/exports/echotopic.h"
#include "KestovaRecordings/internal/exports/picturetopic.h"
#include "KestovaRecordings/internal/exports/sectortopic.h"
#include "KestovaRecordings/internal/turncover.h"
#include "KestovaRecordings/zerocrossings.h"

namespace recordings
{
// A turn goes from bearing 0 to bearing 0; of the first one there is what was recorded, the last one is left out unless
// it is whole.
class tRadarTopics
{
public:
    tRadarTopics(mcap::tMcapWriter& file, const std::string& radar, const tMcapOptions& options)
    {
        if (options.topics.sector)
            m_sector.emplace(file, radar);
        if (options.topics.picture)
            m_picture.emplace(file, radar);
        if (options.topics.echoes)
            m_echoes.emplace(file, radar, options.threshold);
    }

    void add(const tSpoke& spoke, const tDecodedPlace& place, const tOwnShip& own)
    {
        if (m_crossings.goTo(spoke.bearingFrom))
            endTurn(spoke.bearingFrom, own);
        m_cover.add(spoke.bearingFrom);
        m_end = spoke.bearingTo;
        if (m_sector)
            m_sector->add(spoke, place);
        if (m_picture)
            m_picture->add(spoke, place);
        if (m_echoes)
            m_echoes->add(spoke, place);
    }
    void finish(const tOwnShip& own)
    {
        if (m_sector)
            m_sector->finish();
        if (m_cover.covered() >= cWholeTurn)
            endTurn(m_end, own);
    }

private:
    void endTurn(double bearing, const tOwnShip& own)
    {
        if (m_picture)
            m_picture->endTurn(bearing, own);
        if (m_echoes)
            m_echoes->endTurn();
        m_cover.clear();
    }

    tZeroCrossings m_crossings;
    tTurnCover m_cover;
    double m_end = 0;  // of the last spoke
    std::optional<tSectorTopic> m_sector;
    std::optional<tPictureTopic> m_picture;
    std::optional<tEchoTopic> m_echoes;
};
}  // namespace recordings

#endif
