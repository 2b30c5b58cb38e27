#include "KestovaRecordings/internal/mcap/mcapwriter.h"

#include <algorithm>
#include <array>

#include "KestovaRecordings/internal/crc32.h"
#include "KestovaRecordings/internal/mcap/mcaprecord.h"

namespace recordings::mcap
{
namespace
{
std::string beginOf(std::string_view profile)
{
    std::string begin(cMagic);
    {
        const tRecord header(begin, eHeader);
        putText(begin, profile);
        putText(begin, "kestova");
    }
    return begin;
}

// A group of records of one kind in the summary, for its offsets.
struct tGroup
{
    eOpcode opcode;
    std::string records;
};
}  // namespace

tMcapWriter::tMcapWriter(const std::string& path, std::string_view profile, bool compress)
    : m_file(path), m_chunks(m_file, compress, beginOf(profile))
{}

std::uint16_t tMcapWriter::schemaOf(const tSchemaText& schema)
{
    const auto known = std::find(m_schemas.begin(), m_schemas.end(), schema.name);
    const auto number = static_cast<std::uint16_t>(known - m_schemas.begin() + 1);
    if (known != m_schemas.end())
        return number;
    m_schemas.push_back(schema.name);
    const std::size_t begin = m_schemaRecords.size();
    {
        const tRecord record(m_schemaRecords, eSchema);
        put(m_schemaRecords, number);
        putText(m_schemaRecords, schema.name);
        putText(m_schemaRecords, schema.encoding);
        putText(m_schemaRecords, schema.text);
    }
    m_chunk.records.append(m_schemaRecords, begin);
    return number;
}

std::uint16_t tMcapWriter::addChannel(const std::string& topic, const tSchemaText& schema,
                                      std::string_view messageEncoding)
{
    const std::uint16_t schemaNumber = schemaOf(schema);
    const auto number = static_cast<std::uint16_t>(m_channels.size());
    m_channels.push_back({topic, schemaNumber});
    const std::size_t begin = m_channelRecords.size();
    {
        const tRecord record(m_channelRecords, eChannel);
        put(m_channelRecords, number);
        put(m_channelRecords, schemaNumber);
        putText(m_channelRecords, topic);
        putText(m_channelRecords, messageEncoding);
        put(m_channelRecords, std::uint32_t{0});  // no metadata
    }
    m_chunk.records.append(m_channelRecords, begin);
    return number;
}

void tMcapWriter::write(std::uint16_t channel, const tTimes& times, std::string_view data, std::string_view rest)
{
    std::array<char, cRecordHead + 22> head;
    head[0] = static_cast<char>(eMessage);
    le::store(&head[1], std::uint64_t{22 + data.size() + rest.size()});
    le::store(&head[9], channel);
    le::store(&head[11], static_cast<std::uint32_t>(m_channels[channel].messages++));
    le::store(&head[15], times.logNs);
    le::store(&head[23], times.publishNs);
    if (m_chunk.index.size() <= channel)
        m_chunk.index.resize(m_channels.size());
    m_chunk.index[channel].emplace_back(times.logNs, m_chunk.records.size());
    m_chunk.records.append(head.data(), head.size()).append(data).append(rest);
    m_chunk.firstNs = std::min(m_chunk.firstNs, times.logNs);
    m_chunk.lastNs = std::max(m_chunk.lastNs, times.logNs);
    m_firstNs = std::min(m_firstNs, times.logNs);
    m_lastNs = std::max(m_lastNs, times.logNs);
    ++m_messages;
    if (m_chunk.records.size() >= cChunkSize)
        m_chunks.add(m_chunk);
}

void tMcapWriter::putStatistics(std::string& to) const
{
    const tRecord record(to, eStatistics);
    put(to, m_messages);
    put(to, static_cast<std::uint16_t>(m_schemas.size()));
    put(to, static_cast<std::uint32_t>(m_channels.size()));
    put(to, std::uint32_t{0});  // attachments
    put(to, std::uint32_t{0});  // metadata
    put(to, m_chunks.chunks());
    put(to, firstNs());
    put(to, lastNs());
    put(to, static_cast<std::uint32_t>(10 * m_channels.size()));
    for (std::size_t channel = 0; channel < m_channels.size(); ++channel)
    {
        put(to, static_cast<std::uint16_t>(channel));
        put(to, m_channels[channel].messages);
    }
}

void tMcapWriter::finish()
{
    if (!m_chunk.records.empty())
        m_chunks.add(m_chunk);
    const tGroup chunkIndexes{eChunkIndex, m_chunks.finish()};
    std::string end;
    {
        const tRecord record(end, eDataEnd);
        put(end, m_chunks.crc());
    }
    const std::uint64_t summaryBegin = m_file.size() + end.size();
    std::string summary, offsets;
    tGroup statistics{eStatistics, {}};
    putStatistics(statistics.records);
    for (const tGroup& group :
         {tGroup{eSchema, m_schemaRecords}, tGroup{eChannel, m_channelRecords}, statistics, chunkIndexes})
    {
        if (group.records.empty())
            continue;
        const tRecord record(offsets, eSummaryOffset);
        put(offsets, static_cast<std::uint8_t>(group.opcode));
        put(offsets, std::uint64_t{summaryBegin + summary.size()});
        put(offsets, std::uint64_t{group.records.size()});
        summary += group.records;
    }
    const std::uint64_t offsetsBegin = summaryBegin + summary.size();
    summary += offsets;
    put(summary, static_cast<std::uint8_t>(eFooter));
    put(summary, std::uint64_t{20});
    put(summary, summaryBegin);
    put(summary, offsetsBegin);
    put(summary, crc32(0, summary));  // of the summary, and of the footer up to here
    m_file.write(end + summary + std::string(cMagic));
    m_file.finish();
}
}  // namespace recordings::mcap
