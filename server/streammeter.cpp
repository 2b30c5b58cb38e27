#include "server/streammeter.h"

#include <nlohmann/json.hpp>

namespace server
{
using namespace recordings;

namespace
{
constexpr std::uint64_t cRateMs = 3000;
constexpr std::size_t cMostStreams = 256;

const char* nameOf(utils::tBearingReference reference)
{
    constexpr const char* cNames[] = {"unknown", "bow", "north"};
    return cNames[reference];
}

template <typename tValue>
void put(tJson& row, const char* key, const std::optional<tValue>& value)
{
    if (value)
        row[key] = *value;
}
}  // namespace

void tStreamMeter::add(const tStreamKey& key, std::uint64_t timeUs, std::size_t bytes)
{
    if (m_streams.size() >= cMostStreams && !m_streams.contains(key))
        return;
    tStream& stream = m_streams[key];
    stream.arrivals.add(static_cast<std::int64_t>(timeUs) * 1000, bytes);
    stream.lastMs = timeUs / 1000;
}

tJson tStreamMeter::rows(std::uint64_t nowMs)
{
    tJson rows = tJson::array();
    for (auto& [key, stream] : m_streams)
    {
        const tSample now{nowMs, stream.arrivals.datagrams(), stream.arrivals.bytes()};
        if (stream.samples.empty() || nowMs < stream.samples.back().ms)
            stream.samples.clear();
        stream.samples.push_back(now);
        while (stream.samples.size() > 2 && nowMs - stream.samples.front().ms > cRateMs)
            stream.samples.pop_front();
        const tSample& first = stream.samples.front();
        const double seconds = static_cast<double>(nowMs - first.ms) / 1000;
        const auto rate = [&](std::uint64_t count) { return seconds > 0 ? static_cast<double>(count) / seconds : 0.0; };
        const auto jitter = stream.arrivals.jitter();
        const bool isHeard = stream.lastMs != 0;
        rows.push_back({{"stream", key.name()},
                        {"address", key.address()},
                        {"records", now.messages},
                        {"bytes", now.bytes},
                        {"records_per_second", rate(now.messages - first.messages)},
                        {"bytes_per_second", rate(now.bytes - first.bytes)},
                        {"last_ms", isHeard ? tJson(stream.lastMs) : tJson()},
                        {"silent_ms", isHeard ? tJson(nowMs - std::min(nowMs, stream.lastMs)) : tJson()},
                        {"jitter_p50_ms", jitter ? tJson(jitter->p50Ms) : tJson()},
                        {"jitter_p99_ms", jitter ? tJson(jitter->p99Ms) : tJson()}});
    }
    return rows;
}

tJson ownJson(const tOwnShip& own)
{
    tJson row = tJson::object();
    if (own.position.value)
    {
        row["latitude_deg"] = own.position.value->latitudeDeg;
        row["longitude_deg"] = own.position.value->longitudeDeg;
    }
    put(row, "heading_deg", own.headingDeg.value);
    put(row, "course_deg", own.courseDeg.value);
    put(row, "speed_kn", own.speedKn.value);
    put(row, "depth_m", own.depthM.value);
    return row;
}

tJson targetsJson(const std::vector<tTarget>& targets)
{
    tJson rows = tJson::array();
    for (const tTarget& target : targets)
    {
        tJson row = {{target.isAis ? "mmsi" : "target", target.number}};
        if (!target.name.empty())
            row["ship_name"] = target.name;
        if (target.position)
        {
            row["latitude_deg"] = target.position->latitudeDeg;
            row["longitude_deg"] = target.position->longitudeDeg;
        }
        put(row, "distance_nm", target.distanceNm);
        put(row, "bearing_deg", target.bearingDeg);
        if (target.bearingDeg)
            row["bearing_reference"] = nameOf(target.bearingReference);
        put(row, "course_deg", target.courseDeg);
        put(row, "speed_kn", target.speedKn);
        put(row, "heading_deg", target.headingDeg);
        if (target.status != 0)
            row["target_status"] = std::string(1, target.status);
        row["time_ms"] = target.lastMs;
        rows.push_back(std::move(row));
    }
    return rows;
}
}  // namespace server
