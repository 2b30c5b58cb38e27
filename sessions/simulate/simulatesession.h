// tSimulateSession: sends the datagrams of a simulated radar when they are due.
#ifndef KESTOVA_SESSIONS_SIMULATE_SIMULATESESSION_H
#define KESTOVA_SESSIONS_SIMULATE_SIMULATESESSION_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "KestovaRecordings/streamcounts.h"
#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/transport.h"
#include "sessions/radarchoice.h"
#include "sessions/simulate/sentrecorder.h"
#include "sessions/simulate/simulatedradar.h"

namespace session
{
struct tSimulateOptions
{
    tRadarChoice radar;
    std::string localIp = "127.0.0.1";  // interface to send on, by address or name
    double rpm = 24.0;                  // revolutions a minute, cSpokesPerRevolution spokes each
    std::optional<std::uint64_t> durationMs;
    std::uint64_t spokes = 0;  // to send; 0: unlimited
    std::uint64_t seed = 1;
    std::uint64_t startMs = 0;  // time of the first datagram, ms since the epoch; 0: now
    std::string root;           // storage root to record into what is sent; empty: no recording
    bool cat240 = false;        // sends spokes in ASTERIX category 240
};

// One thread at a time.
class tSimulateSession
{
public:
    // Throws tFailure if there is no such radar or interface, the radar has no address for a stream that is simulated,
    // or options.spokes is set and it has no imageStream.
    explicit tSimulateSession(const tSimulateOptions& options);

    // Sends until the simulation ends or `goOn` returns false, then finishes the recording. Throws tFailure if that
    // fails. Calls `goOn` before each datagram and every 50 ms of a wait, on the calling thread: it may read the counts
    // below.
    void run(const std::function<bool()>& goOn);

    const recordings::tStreamCounts& sent() const { return m_sent; }
    std::uint64_t spokes() const { return m_spokes; }
    std::uint64_t refused() const { return m_refused; }                     // datagrams that could not be sent
    const std::string& refusedBecause() const { return m_refusedBecause; }  // the reason of the first of them
    std::uint64_t latestMs() const { return m_latestMs; }                   // the longest delay of a datagram
    const tSentRecorder* recorder() const { return m_recorder.get(); }      // null without a root
    std::uint64_t elapsedMs() const;  // since run() began; after its end, of the whole run

private:
    using tSteady = std::chrono::steady_clock;

    bool waitUntil(tSteady::time_point due, const std::function<bool()>& goOn) const;
    void send(const tSimulatedDatagram& datagram);
    NetAddress destination(const tSimulatedDatagram& datagram) const;

    const RadarAddress m_address;
    const std::uint32_t m_localIp;
    tSimulatedRadar m_radar;
    std::unique_ptr<tSentRecorder> m_recorder;
    std::map<recordings::tStreamKey, std::unique_ptr<net::iDatagramSink>> m_senders;
    recordings::tStreamCounts m_sent;
    std::uint64_t m_spokes = 0, m_refused = 0, m_latestMs = 0;
    std::string m_refusedBecause;
    tSteady::time_point m_start;
    std::optional<std::uint64_t> m_tookMs;  // set at the end of run()
};
}  // namespace session

#endif
