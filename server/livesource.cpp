#include "server/livesource.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/turn.h"
#include "sessions/monitor/listening.h"

namespace server
{
using namespace recordings;

namespace
{
constexpr int cReceiveBuffer = 8 * 1024 * 1024;
constexpr std::chrono::milliseconds cBatchTime{30};
constexpr std::uint64_t cSilentMs = 5000;  // after which the groups are joined anew: the interface may be another
constexpr std::size_t cMostBytes = 4 << 20;
constexpr std::uint32_t cEpoch = 1;

std::uint64_t nowMs()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

session::tRecordOptions recordOptions(const tServeOptions& options, const tRadarName& radar)
{
    session::tRecordOptions wanted;
    wanted.radar = {options.radars, radar.serial, radar.id};
    wanted.localIp = options.localIp;
    return wanted;
}
}  // namespace

tLiveSource::tLiveSource(const tServeOptions& options, const tRadarName& radar, tRadars& radars, std::uint32_t source)
    : m_options(options), m_radar(radar), m_radars(radars), m_source(source),
      m_feed(layoutsOfRadar(options, radar.serial, radar.id),
             [this](const tSpoke& spoke, std::uint64_t timeMs, double turned) {
                 m_builder.add(spoke, timeMs, m_feed.headingDeg(), turned);
                 m_lastMs = timeMs;
             })
{
    for (const session::tStreamGroup& group : session::wantedStreams(recordOptions(options, radar)))
        if (!group.isShared)
        {
            m_groups.push_back(std::make_unique<tGroup>(*this, group));
            m_meter.expect(group.key());
        }
    join();
    m_worker.start([this] { run(); });
}

tLiveSource::~tLiveSource()
{
    m_worker.stop();
    m_sources.clear();
}

void tLiveSource::join()
{
    const std::uint32_t localIp = session::receivingAddress(recordOptions(m_options, m_radar));
    std::vector<net::tSourceRequest> requests;
    for (const auto& group : m_groups)
        requests.push_back({group.get(), group->stream.address});
    m_sources.clear();
    m_sources = net::defaultTransport().openSources(requests, localIp, cReceiveBuffer);
    const std::lock_guard lock(m_mutex);
    m_heardMs = nowMs();
}

void tLiveSource::take(const tGroup& group, const net::tReceivedDatagram& datagram)
{
    const std::uint64_t timeMs = datagram.arrived_ms != 0 ? datagram.arrived_ms : nowMs();
    const std::uint64_t timeUs = datagram.arrived_ns != 0 ? datagram.arrived_ns / 1000 : timeMs * 1000;
    const auto len = static_cast<std::size_t>(std::max(datagram.len, 0));
    const std::lock_guard lock(m_mutex);
    m_heardMs = timeMs;
    m_meter.add(group.stream.key(), timeUs, len);
    m_feed.read({group.stream.kind, group.stream.address.ip, group.stream.address.port, {datagram.data, len}, timeMs});
    if (m_builder.isFull())
        flush();
}

void tLiveSource::flush()
{
    if (m_builder.spokes() == 0)
        return;
    const std::uint32_t flags = m_turns >= cWholeTurn ? cWhole : 0;
    const tBatch batch = m_builder.take({m_source, cEpoch, flags, m_number++});
    keep(batch);
    for (iLiveSink* const sink : m_sinks)
        sink->onLive(batch);
}

void tLiveSource::keep(const tBatch& batch)
{
    m_turn.push_back(batch);
    m_turns += batch.turns;
    m_bytes += batch.bytes->size();
    while (m_turn.size() > 1 && (m_turns - m_turn.front().turns >= 1 || m_bytes > cMostBytes))
    {
        m_turns -= m_turn.front().turns;
        m_bytes -= m_turn.front().bytes->size();
        m_turn.pop_front();
    }
}

void tLiveSource::run()
{
    while (m_worker.sleepFor(cBatchTime))
    {
        bool isSilent = false;
        {
            const std::lock_guard lock(m_mutex);
            flush();
            if (m_lastMs != 0)
                m_radars.hear(m_radar, m_lastMs);
            isSilent = nowMs() > m_heardMs + cSilentMs;
        }
        if (!isSilent)
            continue;
        try
        {
            join();
        }
        catch (const tFailure&)
        {
            const std::lock_guard lock(m_mutex);
            m_heardMs = nowMs();  // there is no interface; the next look is as far away
        }
    }
}

void tLiveSource::add(iLiveSink& sink)
{
    const std::lock_guard lock(m_mutex);
    for (const tBatch& batch : m_turn)
        sink.onLive(batch);
    m_sinks.insert(&sink);
}

void tLiveSource::remove(iLiveSink& sink)
{
    const std::lock_guard lock(m_mutex);
    m_sinks.erase(&sink);
}

tLiveSource::tState tLiveSource::state() const
{
    const std::lock_guard lock(m_mutex);
    return {m_lastMs, m_turns >= cWholeTurn, m_feed.missing()};
}

tJson tLiveSource::streams()
{
    const std::lock_guard lock(m_mutex);
    return m_meter.rows(nowMs());
}

tJson tLiveSource::own() const
{
    const std::lock_guard lock(m_mutex);
    return ownJson(m_feed.navigation().own());
}

tJson tLiveSource::targets() const
{
    const std::lock_guard lock(m_mutex);
    return targetsJson(m_feed.navigation().targets(nowMs()));
}

std::shared_ptr<tLiveSource> tLiveHub::open(const tRadarName& radar)
{
    const std::lock_guard lock(m_mutex);
    std::weak_ptr<tLiveSource>& known = m_sources[tRadars::textOf(radar)];
    std::shared_ptr<tLiveSource> source = known.lock();
    if (!source)
        known = source = std::make_shared<tLiveSource>(m_options, radar, m_radars, nextSource());
    return source;
}
}  // namespace server
