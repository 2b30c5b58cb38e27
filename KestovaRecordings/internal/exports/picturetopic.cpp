#include "KestovaRecordings/internal/exports/picturetopic.h"

#include "KestovaRecordings/internal/exports/exporttexts.h"
#include "KestovaRecordings/internal/exports/sectortopic.h"
#include "KestovaRecordings/internal/png.h"

namespace recordings
{
void tPictureTopic::add(const tSpoke& spoke, const tDecodedPlace& place)
{
    if (m_turn.spokes() == 0)
        m_firstNs = receivedNs(spoke, place);
    m_reference = spoke.reference;
    m_times = timesOf(place);
    m_turn.add(spoke, 0, place.timeMs);
}

void tPictureTopic::endTurn(double bearing, const tOwnShip& own)
{
    m_turn.endAt(bearing);
    write(own);
    m_turn.clear();
}

void tPictureTopic::write(const tOwnShip& own)
{
    const std::string time = utcText(m_turn.lastMs());  // "2024-05-17T08:30:00.250Z"
    tPictureFacts facts;
    facts.date = time.substr(0, 10);
    facts.time = time.substr(11, 12) + " UTC";
    facts.up = m_reference;
    facts.own = own;
    m_picture.draw(m_turn, facts);
    m_message.clear();
    m_message.header(m_firstNs, frameOf(m_reference)).text("png");
    m_message.bytes(colourPng(m_picture.pixels(), m_picture.size(), m_picture.size()));
    m_topic.write(m_times, m_message.bytes());
}
}  // namespace recordings
