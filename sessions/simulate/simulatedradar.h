// tSimulatedRadar: generates the datagrams of a radar in order of time.
//
// A pure generator without input or output: equal options give equal bytes.
#ifndef KESTOVA_SESSIONS_SIMULATE_SIMULATEDRADAR_H
#define KESTOVA_SESSIONS_SIMULATE_SIMULATEDRADAR_H

#include <bitset>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "KestovaStorage/radarmsgpackage.h"
#include "sessions/simulate/scene.h"

namespace session
{
struct tSimulation
{
    std::string serial;
    unsigned short id = 0;
    std::uint64_t seed = 1;
    double rpm = 24.0;
    std::uint64_t startMs = 0;                  // time of the first spoke, ms since the epoch
    std::bitset<eTotalReadWriteTypes> streams;  // those with an address
    std::uint64_t endNs = UINT64_MAX;           // the simulation ends here
    std::uint64_t spokeLimit = UINT64_MAX;      // the simulation ends after so many spokes
    bool cat240 = false;                        // spokes in ASTERIX category 240
};

// The destination of a datagram: a stream of the radar, or a group that all radars share.
enum class eChannel : std::uint8_t
{
    eStream,
    eService,     // eMultiRadarServiceGroup
    eNegotiation  // eRadarNegotiationGroup
};

struct tSimulatedDatagram
{
    std::uint64_t dueNs = 0;  // since the start
    eChannel channel = eChannel::eStream;
    tReadWriteType kind = eOtherType;
    std::string bytes;
};

class tSimulatedRadar
{
public:
    explicit tSimulatedRadar(const tSimulation& simulation);
    tSimulatedRadar(const tSimulatedRadar&) = delete;  // its sources hold pointers to it
    tSimulatedRadar& operator=(const tSimulatedRadar&) = delete;

    // Returns whether there are messages of a stream, beside those to the groups that all radars share.
    bool hasStreams() const;
    // Generates the next datagram. Returns false at the end of the simulation.
    bool next(tSimulatedDatagram& datagram);

private:
    // One kind of message, due at phase + n * period for n = 0, 1, 2 and so on.
    struct tSource
    {
        eChannel channel;
        tReadWriteType kind;
        double periodNs;
        double phaseNs;
        std::function<void(std::uint64_t n, double time, std::uint64_t timeMs, std::string& bytes)> compose;
        std::uint64_t sent = 0;

        std::uint64_t dueNs() const;
    };

    void addStream(tReadWriteType kind, double periodMs, double phaseMs, decltype(tSource::compose) compose);
    void addRadarStreams();
    void addSensors();
    void addServices();

    tSimulation m_simulation;
    tScene m_scene;
    tEchoes m_echoes{};
    std::vector<tSource> m_sources;
    std::uint64_t m_spokes = 0;
};
}  // namespace session

#endif
