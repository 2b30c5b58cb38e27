// kestova monitor: what comes of each stream, live, without a recording.
#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <memory>
#include <stdexcept>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "sessions/monitor/listening.h"
#include "sessions/monitor/monitorsession.h"
#include "sessions/record/recordingchecks.h"
#include "tools/commands/commands.h"
#include "tools/commands/monitortable.h"
#include "tools/commands/recordsource.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/keys.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace session;

namespace
{
using tSteady = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct tOptions : tSourceOptions
{
    std::string duration;
    std::string silent;
    bool json = false;
};

std::uint64_t limitOf(const std::string& duration)
{
    return duration.empty() ? UINT64_MAX : parseDuration(duration);
}

// Joins as a recorder does, or fails with its reasons.
std::unique_ptr<tMonitorSession> openSession(const tRecordOptions& options)
{
    const std::vector<tStreamGroup> groups = wantedStreams(options);
    const std::uint32_t localIp = receivingAddress(options);
    if (localIp == 0 && options.groups.empty())
        throw recordings::tFailure("the local interface has no address yet: connect it, or choose another with "
                                   "--local-ip");
    requireJoinable(addressesOf(groups), localIp);
    return std::make_unique<tMonitorSession>(groups, localIp);
}

class tMonitor
{
public:
    tMonitor(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_silentLimit(limitOf(options.silent)),
          m_session(openSession(options.parsed()))
    {}

    int run()
    {
        const std::uint64_t limit = limitOf(m_options.duration);
        std::uint64_t passed = 0;
        bool ends = false;
        m_streams = m_session->update();
        while (!ends && passed < limit && !m_stop.wait(milliseconds(std::min<std::uint64_t>(100, limit - passed))))
        {
            m_streams = m_session->update();
            passed = elapsedMs();
            ends = isSilent() || quits();
            if (m_console.progressDue())
                m_console.progress(
                    monitorTable(m_streams, m_console.terminalWidth() - 1, m_console.terminalHeight() - 1));
        }
        m_tookMs = elapsedMs();
        return report();
    }

private:
    std::uint64_t elapsedMs() const
    {
        return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(tSteady::now() - m_started).count());
    }

    bool isSilent() const
    {
        return std::any_of(m_streams.begin(), m_streams.end(), [this](const auto& stream) { return isSilent(stream); });
    }
    // Groups that all radars share do not count, as for a recording.
    bool isSilent(const tMonitoredStream& stream) const { return !stream.isShared && stream.silentMs >= m_silentLimit; }

    bool quits()
    {
        const std::vector<eKey> keys = m_keyboard.pressed();
        return std::find(keys.begin(), keys.end(), eKey::eQuit) != keys.end();
    }

    int report()
    {
        for (tMonitoredStream& stream : m_streams)  // of the whole time
        {
            stream.datagramsPerSecond = perSecond(stream.datagrams, m_tookMs);
            stream.bytesPerSecond = perSecond(stream.bytes, m_tookMs);
        }
        const bool onTerminal = isatty(m_console.results()) == 1;
        if (m_options.json)
            printJson(m_console, json());
        else
            m_console.print(monitorTable(m_streams, onTerminal ? m_console.terminalWidth() : std::string::npos,
                                         m_streams.size() + 1) +
                            '\n');
        m_console.flush();
        return noteSilence();
    }

    // Returns the exit status.
    int noteSilence()
    {
        for (const tMonitoredStream& stream : m_streams)
        {
            if (isSilent(stream))
                m_console.note(fmt::format("kestova monitor: no datagram of {} {} for {:.1f} s", stream.key.name(),
                                           stream.key.address(), static_cast<double>(stream.silentMs) / 1000.0));
        }
        if (isSilent())
        {
            m_console.ring();
            return eDamaged;
        }
        const bool nothing = std::none_of(m_streams.begin(), m_streams.end(),
                                          [](const auto& stream) { return stream.heard && !stream.isShared; });
        if (nothing)
            m_console.note("kestova monitor: no datagram came on any stream");
        return nothing ? eDamaged : eDone;
    }

    tJson json() const
    {
        tJson rows = tJson::array(), silent = tJson::array();
        for (const tMonitoredStream& stream : m_streams)
        {
            rows.push_back({{"stream", stream.key.name()},
                            {"address", stream.key.address()},
                            {"datagrams", stream.datagrams},
                            {"bytes", stream.bytes},
                            {"datagrams_per_second", stream.datagramsPerSecond},
                            {"bytes_per_second", stream.bytesPerSecond},
                            {"last_heard_ms", stream.heard ? tJson(stream.silentMs) : tJson()},
                            {"longest_silence_ms", stream.longestSilenceMs},
                            {"jitter_p50_ms", stream.jitter ? tJson(stream.jitter->p50Ms) : tJson()},
                            {"jitter_p99_ms", stream.jitter ? tJson(stream.jitter->p99Ms) : tJson()},
                            {"kernel_dropped", stream.kernelDropped}});
            if (isSilent(stream))
                silent.push_back({{"stream", stream.key.name()}, {"address", stream.key.address()}});
        }
        return {{"schema", "kestova/monitor/1"}, {"duration_ms", m_tookMs}, {"silent", silent}, {"streams", rows}};
    }

    const tOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    tKeyboard m_keyboard;
    const std::uint64_t m_silentLimit;
    std::unique_ptr<tMonitorSession> m_session;
    std::vector<tMonitoredStream> m_streams;
    const tSteady::time_point m_started = tSteady::now();
    std::uint64_t m_tookMs = 0;
};
}  // namespace

void addMonitor(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("monitor", "Show what comes of each stream, live");
    command.footer(
        "Shows for each stream its rate, when it was heard last, its jitter, its longest silence and what the\n"
        "kernel dropped, until q, Ctrl-C or --duration, and ends with the table of the whole time. Records\n"
        "nothing. Exit status 3 if --silent ended it, or if no datagram came.\n"
        "Example: kestova monitor --radars radars.json --radar A1:2 --id 1 --silent 5s");
    addSource(command, *options);
    addDuration(command, options->duration);
    command.add_option("--silent", options->silent, "Ring and end when a stream has been silent for so long")
        ->type_name("DUR")
        ->check(checkedBy([](const std::string& text) {
            if (parseDuration(text) == 0)
                throw std::invalid_argument("'" + text + "' is no silence: write 1ms or more");
        }));
    addJson(command, options->json);
    command.callback([options, &command, &chosen] {
        requireSource(command);
        chosen = [options](tConsole& console) { return tMonitor(*options, console).run(); };
    });
}
}  // namespace tool
