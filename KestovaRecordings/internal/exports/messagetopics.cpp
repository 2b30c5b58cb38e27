#include "KestovaRecordings/internal/exports/messagetopics.h"

#include "KestovaRecordings/internal/exports/exporttexts.h"
#include "KestovaRecordings/streamchoice.h"
#include "UdpSocket/udpsocket.h"

namespace recordings
{
void tRawTopics::write(const tExportedPackage& package)
{
    const tPackageContents& contents = package.contents;
    const tKey key(contents.info.rwType, contents.ip, contents.port);
    auto found = m_streams.find(key);
    if (found == m_streams.end())
    {
        const std::string address = net::transAddr(contents.ip);
        const std::string name = "/raw/" + ros::tokenOf(streamTitle(contents.info.rwType)) + "/" +
                                 ros::tokenOf(address + "_" + std::to_string(contents.port));
        found = m_streams.try_emplace(key, tStream{tTopic(m_file, name, ros::eType::eUdpPacket), address}).first;
    }
    const mcap::tTimes times{package.timeUs * 1000, contents.timeMs * 1'000'000};
    m_message.clear();
    m_message.header(times.logNs, "").text(found->second.address).number(contents.port);
    m_message.count(contents.payload.size());
    found->second.topic.write(times, m_message.bytes(), contents.payload);
}

void tSentenceTopic::write(std::string_view line, const tDecodedPlace& place)
{
    const mcap::tTimes times = timesOf(place);
    m_message.clear();
    m_message.header(times.logNs, place.stream.name()).text(asciiText(line));
    m_topic.write(times, m_message.bytes());
}
}  // namespace recordings
