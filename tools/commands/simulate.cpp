// kestova simulate: sends a simulated radar's datagrams to its groups.
#include <fmt/format.h>
#include <memory>

#include "KestovaStorage/datafileformat.h"
#include "sessions/simulate/simulatesession.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;
using session::tSimulateSession;

namespace
{
constexpr std::uint64_t cLateMs = 500;  // a longer delay means that the rate is not kept

struct tOptions
{
    session::tSimulateOptions simulate;
    std::string duration;
    bool json = false;
};

void report(const tOptions& options, const tSimulateSession& simulation, tConsole& console)
{
    const tStreamCount sum = total(simulation.sent());
    const std::uint64_t tookMs = simulation.elapsedMs();
    if (!options.json)
    {
        console.print(streamsText(simulation.sent(), "datagrams"));
        console.print(fmt::format("{} spokes in {}, {}\n", simulation.spokes(), durationText(tookMs),
                                  rateText(perSecond(sum.bytes, tookMs))));
        return;
    }
    printJson(console, {{"schema", "kestova/simulate/2"},
                        {"radar", options.simulate.radar.serial},
                        {"id", options.simulate.radar.id},
                        {"seed", options.simulate.seed},
                        {"duration_ms", tookMs},
                        {"late_ms", simulation.latestMs()},
                        {"spokes", simulation.spokes()},
                        {"datagrams", sum.messages},
                        {"bytes", sum.bytes},
                        {"refused", simulation.refused()},
                        {"streams", streamsJson(simulation.sent(), "datagrams")}});
}

void send(tSimulateSession& simulation, const tStopSignal& stop, tConsole& console)
{
    simulation.run([&] {
        if (console.progressDue())
            console.progress(fmt::format("{}  {} spokes  {} sent", durationText(simulation.elapsedMs()),
                                         simulation.spokes(), sizeText(total(simulation.sent()).bytes)));
        return !stop.requested();
    });
}

int simulate(const tOptions& given, tConsole& console)
{
    tOptions options = given;
    if (!options.duration.empty())
        options.simulate.durationMs = parseDuration(options.duration);
    const tStopSignal stop;
    tSimulateSession simulation(options.simulate);
    if (const auto* const recorder = simulation.recorder())
        console.inform("recording what is sent to " + recorder->file());
    console.inform(fmt::format("simulating radar {} id {} at {} revolutions a minute on {}",
                               options.simulate.radar.serial, options.simulate.radar.id, options.simulate.rpm,
                               options.simulate.localIp));
    send(simulation, stop, console);
    report(options, simulation, console);
    if (simulation.latestMs() >= cLateMs)
        console.note(fmt::format("kestova: this machine cannot follow: datagrams were up to {} ms late; lower --rate",
                                 simulation.latestMs()));
    if (simulation.refused() == 0)
        return eDone;
    console.note(fmt::format("kestova: the network refused {} datagrams: {}", simulation.refused(),
                             simulation.refusedBecause()));
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
    addRadar(command, options->simulate.radar)->required();
    command.get_option("--radar")->required();
    command.add_option("--local-ip", options->simulate.localIp, "Interface to send on, by address or name")
        ->type_name("ADDRESS")
        ->capture_default_str();
    command.add_option("--rate", options->simulate.rpm, "Revolutions a minute, 4096 spokes each")
        ->check(decimalNumber(0.1, 6000.0))
        ->capture_default_str();
    addDuration(command, options->duration);
    command.add_option("--spokes", options->simulate.spokes, "End after so many spokes")->check(wholeNumber(1));
    command.add_option("--seed", options->simulate.seed, "Another number gives other waters")
        ->check(wholeNumber(0))
        ->capture_default_str();
    command
        .add_option("--start-time", options->simulate.startMs,
                    "Time of the first datagram in ms since the epoch, for repeatable bytes; now where not given")
        ->check(wholeNumber(1, storage::cTimeLimit - 1));
    command.add_flag("--cat240", options->simulate.cat240,
                     "Send spokes in the public standard for radar video, ASTERIX CAT240");
    command
        .add_option("--root", options->simulate.root,
                    "Record what is sent below this storage root, for kestova diff with what arrived")
        ->type_name("FOLDER");
    addJson(command, options->json);
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return simulate(*options, console); }; });
}
}  // namespace tool
