// kestova simulate: plays a radar onto its groups.
#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <thread>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/servicegroups.h"
#include "KestovaUtils/timeparser.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/localaddress.h"
#include "tools/shell/command.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"

#include "sessions/simulate/simulatedradar.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
namespace
{
using tSteady = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::uint64_t cLateMs = 500;  // beyond this the rate that was asked for is not the rate that was sent

struct tOptions
{
    tRadarChoice radar;
    std::string localIp = "127.0.0.1";
    double rate = 24.0;
    std::string duration;
    std::uint64_t spokes = 0;
    std::uint64_t seed = 1;
    std::uint64_t startMs = 0;
    bool json = false;
};

std::uint64_t elapsedMs(tSteady::time_point start)
{
    return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(tSteady::now() - start).count());
}

tSimulation simulationFor(const tOptions& options, const RadarAddress& address)
{
    tSimulation how;
    how.serial = options.radar.serial;
    how.id = options.radar.id;
    how.seed = options.seed;
    how.rpm = options.rate;
    how.startMs = options.startMs != 0 ? options.startMs : utils::time::tTimeParser::GetCurrentTime_ms();
    for (unsigned int kind = 0; kind < eTotalReadWriteTypes; ++kind)
        how.streams.set(kind, address.streamAddress(kind).ip != 0 && address.streamAddress(kind).port != 0);
    if (!options.duration.empty())
        how.endNs = parseDuration(options.duration) * 1'000'000;
    if (options.spokes > 0 && !how.streams.test(eImageStream))
        throw tFailure("--spokes needs a radar that has an imageStream: use --duration instead");
    if (options.spokes > 0)
        how.spokeLimit = options.spokes;
    return how;
}

// One sender a destination, and what went through it.
class tTransmitter
{
public:
    tTransmitter(const RadarAddress& address, std::uint32_t localIp) : m_address(address), m_localIp(localIp) {}

    void send(const tSimulatedDatagram& datagram)
    {
        const NetAddress group = destination(datagram);
        const tStreamKey key = tStreamKey::of(datagram.kind, group.ip, net::NtoHs(group.port));
        auto& sender = m_senders[key];
        if (!sender)
            sender = std::make_unique<net::UdpSender>(group, m_localIp, 0);
        if (sender->sendData(datagram.bytes.data(), static_cast<int>(datagram.bytes.size())))
            m_sent[key].add(datagram.bytes);
        else
            ++m_refused;
    }

    const tStreamCounts& sent() const { return m_sent; }
    std::uint64_t refused() const { return m_refused; }

private:
    NetAddress destination(const tSimulatedDatagram& datagram) const
    {
        if (datagram.channel == eChannel::service)
            return serviceAddress(eMultiRadarServiceGroup);
        if (datagram.channel == eChannel::negotiation)
            return serviceAddress(eRadarNegotiationGroup);
        return m_address.streamAddress(datagram.kind);
    }

    RadarAddress m_address;
    std::uint32_t m_localIp;
    std::map<tStreamKey, std::unique_ptr<net::UdpSender>> m_senders;
    tStreamCounts m_sent;
    std::uint64_t m_refused = 0;
};

// Sleeps until a datagram is due. False once the end was asked for; then nothing more is sent.
bool waitUntil(tSteady::time_point due, const tStopSignal& stop)
{
    constexpr milliseconds longest{50};  // so that Ctrl-C is answered at once also between rare datagrams
    while (!stop.requested())
    {
        const auto now = tSteady::now();
        if (now >= due)
            return true;
        std::this_thread::sleep_until(std::min(due, now + longest));
    }
    return false;
}

// What a run of the simulation came to.
struct tOutcome
{
    std::uint64_t spokes = 0;
    std::uint64_t tookMs = 0;
    std::uint64_t latestMs = 0;  // how long after it was due the latest datagram was sent
};

void report(const tOptions& options, const tTransmitter& transmitter, const tOutcome& outcome, tConsole& console)
{
    const auto& [spokes, tookMs, latestMs] = outcome;
    const tStreamCount sum = total(transmitter.sent());
    if (!options.json)
    {
        console.print(streamsText(transmitter.sent(), "datagrams"));
        console.print(
            fmt::format("{} spokes in {}, {}\n", spokes, durationText(tookMs), rateText(perSecond(sum.bytes, tookMs))));
        return;
    }
    printJson(console, {{"schema", "kestova/simulate/1"},
                        {"radar", options.radar.serial},
                        {"id", options.radar.id},
                        {"seed", options.seed},
                        {"duration_ms", tookMs},
                        {"late_ms", latestMs},
                        {"spokes", spokes},
                        {"datagrams", sum.messages},
                        {"bytes", sum.bytes},
                        {"refused", transmitter.refused()},
                        {"streams", streamsJson(transmitter.sent(), "datagrams")}});
}

tOutcome play(tSimulatedRadar& radar, tTransmitter& transmitter, const tStopSignal& stop, tConsole& console)
{
    tOutcome outcome;
    tSimulatedDatagram datagram;
    const auto start = tSteady::now();
    while (radar.next(datagram) && waitUntil(start + std::chrono::nanoseconds(datagram.dueNs), stop))
    {
        outcome.latestMs = std::max(outcome.latestMs, elapsedMs(start + std::chrono::nanoseconds(datagram.dueNs)));
        transmitter.send(datagram);
        outcome.spokes += datagram.kind == eImageStream ? 1 : 0;
        if (console.progressDue())
            console.progress(fmt::format("{}  {} spokes  {} sent", durationText(elapsedMs(start)), outcome.spokes,
                                         sizeText(total(transmitter.sent()).bytes)));
    }
    outcome.tookMs = elapsedMs(start);
    return outcome;
}

int simulate(const tOptions& options, tConsole& console)
{
    const tStopSignal stop;
    const RadarAddress& address = options.radar.find();
    tTransmitter transmitter(address, localAddress(options.localIp));
    tSimulatedRadar radar(simulationFor(options, address));
    console.note(fmt::format("simulating radar {} id {} at {} revolutions a minute on {}", options.radar.serial,
                             options.radar.id, options.rate, options.localIp));
    const tOutcome outcome = play(radar, transmitter, stop, console);
    report(options, transmitter, outcome, console);
    if (outcome.latestMs >= cLateMs)
        console.note(fmt::format("kestova: this machine cannot follow: datagrams were up to {} ms late; lower --rate",
                                 outcome.latestMs));
    if (transmitter.refused() == 0)
        return eDone;
    console.note(fmt::format("kestova: the network refused {} datagrams", transmitter.refused()));
    return eDamaged;
}
}  // namespace

void addSimulate(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("simulate", "Play a radar onto its groups");
    command.footer("Sends spokes, targets, sensor sentences and service messages on the groups of a radar of a\n"
                   "directory file, and ends with a table of what was sent.\n"
                   "Example: kestova simulate --radars radars.json --radar A1:2 --id 1 --duration 60");
    addRadar(command, options->radar)->required();
    command.get_option("--radar")->required();
    command.add_option("--local-ip", options->localIp, "Interface to send on, by address or name")
        ->type_name("ADDRESS")
        ->capture_default_str();
    command.add_option("--rate", options->rate, "Revolutions a minute, 4096 spokes each")
        ->check(CLI::Range(0.1, 6000.0))
        ->capture_default_str();
    command.add_option("--duration", options->duration, "End after this time; until Ctrl-C where it is not given")
        ->type_name("SEC")
        ->check(checkedBy(parseDuration));
    command.add_option("--spokes", options->spokes, "End after so many spokes")->check(CLI::PositiveNumber);
    command.add_option("--seed", options->seed, "Another number gives other waters")->capture_default_str();
    command.add_option("--start-time", options->startMs,
                       "Time of the first datagram in ms since the epoch, for repeatable bytes; now where not given");
    command.add_flag("--json", options->json, "Results as one JSON object");
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return simulate(*options, console); }; });
}
}  // namespace tool
