// tMcapWriter: an MCAP file: messages of channels in chunks, with an index, statistics and checksums.
//
// Shapes   a channel is a topic whose messages have a schema. A chunk ends with the message that makes it cChunkSize.
// Threads  one at a time.
// Errors   operations throw tFailure; without finish() nothing is left.
#ifndef KESTOVA_RECORDINGS_INTERNAL_MCAP_MCAPWRITER_H
#define KESTOVA_RECORDINGS_INTERNAL_MCAP_MCAPWRITER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaRecordings/internal/mcap/chunkwriter.h"
#include "KestovaRecordings/internal/partfile.h"

namespace recordings::mcap
{
struct tSchemaText
{
    std::string name, encoding, text;
};

struct tTimes
{
    std::uint64_t logNs, publishNs;
};

class tMcapWriter
{
public:
    tMcapWriter(const std::string& path, std::string_view profile, bool compress);

    std::uint16_t addChannel(const std::string& topic, const tSchemaText& schema, std::string_view messageEncoding);
    // The message is `data` and `rest` behind it.
    void write(std::uint16_t channel, const tTimes& times, std::string_view data, std::string_view rest = {});
    void finish();

    struct tChannel
    {
        std::string topic;
        std::uint16_t schema;  // number from 1
        std::uint64_t messages = 0;
    };
    const std::vector<tChannel>& channels() const { return m_channels; }
    const std::string& schemaName(const tChannel& channel) const { return m_schemas[channel.schema - 1]; }
    std::uint64_t messages() const { return m_messages; }
    std::uint64_t firstNs() const { return m_messages == 0 ? 0 : m_firstNs; }
    std::uint64_t lastNs() const { return m_lastNs; }

private:
    static constexpr std::size_t cChunkSize = 4 << 20;

    std::uint16_t schemaOf(const tSchemaText& schema);
    void putStatistics(std::string& to) const;
    std::string summary(std::uint64_t begin) const;

    tPartFile m_file;
    tChunkWriter m_chunks;
    tChunk m_chunk;
    std::vector<std::string> m_schemas;  // their names
    std::vector<tChannel> m_channels;
    std::string m_schemaRecords, m_channelRecords;
    std::uint64_t m_messages = 0, m_firstNs = UINT64_MAX, m_lastNs = 0;
};
}  // namespace recordings::mcap

#endif
