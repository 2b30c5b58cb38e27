// What MCAP exports know of the file and of time while they write messages.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_MESSAGETOPICS_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_MESSAGETOPICS_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>

#include "KestovaRecordings/exporter.h"
#include "KestovaRecordings/internal/exports/decodedstreams.h"
#include "KestovaRecordings/internal/exports/rostypes.h"
#include "KestovaRecordings/internal/mcap/cdrwriter.h"
#include "KestovaRecordings/internal/mcap/mcapwriter.h"

namespace recordings
{
// log_time is the record's, publish_time the package's.
inline mcap::tTimes timesOf(const tDecodedPlace& place)
{
    return {place.timeUs * 1000, place.packageMs * 1'000'000};
}

// A topic, which is in the file from its first message on.
class tTopic
{
public:
    tTopic(mcap::tMcapWriter& file, std::string name, ros::eType type)
        : m_file(file), m_name(std::move(name)), m_type(type)
    {}

    void write(const mcap::tTimes& times, std::string_view message, std::string_view rest = {})
    {
        if (m_channel < 0)
            m_channel = m_file.addChannel(m_name, ros::schemaOf(m_type), "cdr");
        m_file.write(static_cast<std::uint16_t>(m_channel), times, message, rest);
    }

private:
    mcap::tMcapWriter& m_file;
    const std::string m_name;
    const ros::eType m_type;
    int m_channel = -1;
};

// /raw/STREAM/A_B_C_D_PORT: the datagrams, byte for byte.
class tRawTopics
{
public:
    explicit tRawTopics(mcap::tMcapWriter& file) : m_file(file) {}

    void write(const tExportedPackage& package);

private:
    struct tStream
    {
        tTopic topic;
        std::string address;
    };
    using tKey = std::tuple<tReadWriteType, std::uint32_t, std::uint16_t>;  // kind, address and port

    mcap::tMcapWriter& m_file;
    std::map<tKey, tStream> m_streams;
    mcap::tCdrWriter m_message;
};

// /sentences: each line, with its stream as the frame.
class tSentenceTopic
{
public:
    explicit tSentenceTopic(mcap::tMcapWriter& file) : m_topic(file, "/sentences", ros::eType::eSentence) {}

    void write(std::string_view line, const tDecodedPlace& place);

private:
    tTopic m_topic;
    mcap::tCdrWriter m_message;
};
}  // namespace recordings

#endif
