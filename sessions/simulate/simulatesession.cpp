#include "sessions/simulate/simulatesession.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <thread>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/servicegroups.h"
#include "KestovaUtils/timeparser.h"
#include "sessions/localaddress.h"

namespace session
{
using namespace recordings;

namespace
{
using std::chrono::milliseconds;

std::uint64_t millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start).count());
}

tSimulation simulationFor(const tSimulateOptions& options, const RadarAddress& address)
{
    tSimulation simulation;
    simulation.serial = options.radar.serial;
    simulation.id = options.radar.id;
    simulation.seed = options.seed;
    simulation.rpm = options.rpm;
    simulation.cat240 = options.cat240;
    simulation.startMs = options.startMs != 0 ? options.startMs : utils::time::tTimeParser::GetCurrentTime_ms();
    for (unsigned int kind = 0; kind < eTotalReadWriteTypes; ++kind)
        simulation.streams.set(kind, address.streamAddress(kind).ip != 0 && address.streamAddress(kind).port != 0);
    if (options.durationMs)
        simulation.endNs = *options.durationMs * 1'000'000;
    if (options.spokes > 0 && !simulation.streams.test(eImageStream))
        throw tFailure("--spokes needs a radar that has an imageStream: use --duration instead");
    if (options.spokes > 0)
        simulation.spokeLimit = options.spokes;
    return simulation;
}
}  // namespace

tSimulateSession::tSimulateSession(const tSimulateOptions& options)
    : m_address(options.radar.find()), m_localIp(localAddress(options.localIp)),
      m_radar(simulationFor(options, m_address))
{
    if (!m_radar.hasStreams())
        throw tFailure(fmt::format("radar {} with id {} has no address for any stream that can be simulated: add its "
                                   "imageStream, for one, to {}",
                                   options.radar.serial, options.radar.id, options.radar.directory));
    if (!options.root.empty())
        m_recorder = std::make_unique<tSentRecorder>(options.root, m_address);
}

void tSimulateSession::run(const std::function<bool()>& goOn)
{
    tSimulatedDatagram datagram;
    m_start = tSteady::now();
    while (m_radar.next(datagram))
    {
        const auto due = m_start + std::chrono::nanoseconds(datagram.dueNs);
        if (!waitUntil(due, goOn))
            break;
        m_latestMs = std::max(m_latestMs, millisecondsSince(due));
        send(datagram);
        m_spokes += datagram.kind == eImageStream ? 1 : 0;
    }
    m_tookMs = millisecondsSince(m_start);
    if (m_recorder)
        m_recorder->finish();
}

std::uint64_t tSimulateSession::elapsedMs() const
{
    return m_tookMs ? *m_tookMs : millisecondsSince(m_start);
}

bool tSimulateSession::waitUntil(tSteady::time_point due, const std::function<bool()>& goOn) const
{
    constexpr milliseconds cLongest{50};  // so that goOn() ends the wait for a late datagram, too
    while (goOn())
    {
        const auto now = tSteady::now();
        if (now >= due)
            return true;
        std::this_thread::sleep_until(std::min(due, now + cLongest));
    }
    return false;
}

void tSimulateSession::send(const tSimulatedDatagram& datagram)
{
    const NetAddress group = destination(datagram);
    const tStreamKey key = tStreamKey::of(datagram.kind, group.ip, net::NtoHs(group.port));
    auto& sender = m_senders[key];
    if (!sender)
        sender = net::defaultTransport().openSink(group, m_localIp);
    if (sender->send(datagram.bytes.data(), static_cast<int>(datagram.bytes.size())))
    {
        m_sent[key].add(datagram.bytes);
        if (m_recorder)
            m_recorder->add(group, datagram.bytes);
    }
    else if (const int error = errno; ++m_refused == 1)
        m_refusedBecause = std::strerror(error);
}

NetAddress tSimulateSession::destination(const tSimulatedDatagram& datagram) const
{
    if (datagram.channel == eChannel::eService)
        return serviceAddress(eMultiRadarServiceGroup);
    if (datagram.channel == eChannel::eNegotiation)
        return serviceAddress(eRadarNegotiationGroup);
    return m_address.streamAddress(datagram.kind);
}
}  // namespace session
