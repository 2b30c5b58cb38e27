#include "sessions/simulate/simulatedradar.h"

#include <algorithm>

#include "sessions/simulate/cat240spoke.h"
#include "sessions/simulate/messages.h"
#include "sessions/simulate/nmea.h"
#include "sessions/simulate/spoke.h"

namespace session
{
namespace
{
constexpr double cNsPerMs = 1e6;
constexpr double cMinuteMs = 60'000.0;
}  // namespace

std::uint64_t tSimulatedRadar::tSource::dueNs() const
{
    // Computed from the start for each message: rounding errors do not accumulate.
    return static_cast<std::uint64_t>(phaseNs + static_cast<double>(sent) * periodNs);
}

tSimulatedRadar::tSimulatedRadar(const tSimulation& simulation) : m_simulation(simulation), m_scene(simulation.seed)
{
    addRadarStreams();
    addSensors();
    addServices();
}

void tSimulatedRadar::addStream(tReadWriteType kind, double periodMs, double phaseMs,
                                decltype(tSource::compose) compose)
{
    if (m_simulation.streams.test(kind))
        m_sources.push_back({eChannel::eStream, kind, periodMs * cNsPerMs, phaseMs * cNsPerMs, std::move(compose)});
}

void tSimulatedRadar::addRadarStreams()
{
    const double revolutionMs = cMinuteMs / m_simulation.rpm;
    addStream(eImageStream, revolutionMs / cSpokesPerRevolution, 0.0,
              [this](std::uint64_t n, double time, std::uint64_t timeMs, std::string& bytes) {
                  m_scene.echoes(n, time, m_echoes);
                  if (m_simulation.cat240)
                      encodeCat240Spoke(n, timeMs, m_echoes, static_cast<std::uint8_t>(m_simulation.id), bytes);
                  else
                      encodeSpoke(n, timeMs, m_echoes, bytes);
              });
    addStream(eImageState, 1000.0, 5.0, [this](std::uint64_t, double, std::uint64_t timeMs, std::string& bytes) {
        bytes = imageStateMessage(m_simulation.serial, m_simulation.rpm, timeMs);
    });
    // The ARPA reports all its targets once a revolution.
    addStream(eArpaStream, revolutionMs, 40.0,
              [this](std::uint64_t, double time, std::uint64_t timeMs, std::string& bytes) {
                  bytes.clear();
                  for (std::size_t i = 0; i < m_scene.targetCount(); ++i)
                      bytes += trackedTargetSentence(static_cast<unsigned int>(i + 1), m_scene.ownShip(time),
                                                     m_scene.target(i, time), timeMs);
              });
    addStream(eArpaState, 1000.0, 15.0, [this](std::uint64_t, double, std::uint64_t timeMs, std::string& bytes) {
        bytes = arpaStateMessage(static_cast<std::uint16_t>(m_scene.targetCount()), timeMs);
    });
}

void tSimulatedRadar::addSensors()
{
    // Each vessel reports every ten seconds, one after the other.
    addStream(eAisDev, 10'000.0 / static_cast<double>(m_scene.targetCount()), 25.0,
              [this](std::uint64_t n, double time, std::uint64_t timeMs, std::string& bytes) {
                  const std::size_t i = n % m_scene.targetCount();
                  bytes = aisPositionSentence(m_scene.mmsi(i), m_scene.target(i, time), timeMs);
              });
    addStream(eGpsDev, 500.0, 10.0, [this](std::uint64_t n, double time, std::uint64_t timeMs, std::string& bytes) {
        const tMotion ship = m_scene.ownShip(time);
        bytes = n % 2 == 0 ? positionSentence(ship, timeMs) : fixSentence(ship, timeMs);
    });
    addStream(eDepthDev, 1000.0, 30.0, [this](std::uint64_t, double time, std::uint64_t, std::string& bytes) {
        bytes = depthSentence(m_scene.depthMetres(time));
    });
    addStream(eHeadingDev, 100.0, 3.0, [this](std::uint64_t, double time, std::uint64_t, std::string& bytes) {
        bytes = headingSentence(m_scene.ownShip(time).headingDeg);
    });
}

void tSimulatedRadar::addServices()
{
    m_sources.push_back({eChannel::eService, eOtherType, 2000.0 * cNsPerMs, 20.0 * cNsPerMs,
                         [this](std::uint64_t, double, std::uint64_t timeMs, std::string& bytes) {
                             bytes = serviceMessage(m_simulation.serial, m_simulation.id, timeMs);
                         }});
    m_sources.push_back({eChannel::eNegotiation, eOtherType, 5000.0 * cNsPerMs, 50.0 * cNsPerMs,
                         [this](std::uint64_t, double, std::uint64_t, std::string& bytes) {
                             bytes = negotiationMessage(m_simulation.serial, m_simulation.id);
                         }});
}

bool tSimulatedRadar::hasStreams() const
{
    return std::any_of(m_sources.begin(), m_sources.end(),
                       [](const tSource& source) { return source.channel == eChannel::eStream; });
}

bool tSimulatedRadar::next(tSimulatedDatagram& datagram)
{
    const auto source = std::min_element(m_sources.begin(), m_sources.end(),
                                         [](const tSource& a, const tSource& b) { return a.dueNs() < b.dueNs(); });
    const std::uint64_t dueNs = source->dueNs();
    const bool spoke = source->kind == eImageStream;
    if (dueNs >= m_simulation.endNs || (spoke && m_spokes >= m_simulation.spokeLimit))
        return false;
    datagram.dueNs = dueNs;
    datagram.channel = source->channel;
    datagram.kind = source->kind;
    source->compose(source->sent++, static_cast<double>(dueNs) * 1e-9, m_simulation.startMs + dueNs / 1'000'000,
                    datagram.bytes);
    if (spoke)
        ++m_spokes;
    return true;
}
}  // namespace session
