// kestova record: a radar's streams, or any groups, into data files.
#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <memory>

#include "sessions/record/recordsession.h"
#include "tools/commands/commands.h"
#include "tools/commands/recordlines.h"
#include "tools/commands/recordservice.h"
#include "tools/commands/recordsource.h"
#include "tools/commands/spokelayouts.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/options.h"
#include "tools/shell/prunelimits.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;
using session::eFinishing;
using session::tRecorderState;

namespace
{
using tSteady = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct tOptions : tSourceOptions
{
    tPruneTexts limits;
    std::string duration;
    std::string metricsFile;
    std::string layout;
    bool json = false;
};

std::uint64_t elapsedMs(tSteady::time_point since)
{
    return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(tSteady::now() - since).count());
}

session::tRecordOptions recordOptions(const tOptions& given)
{
    session::tRecordOptions options = given.parsed();
    options.limits = given.limits.limits();
    if (!given.layout.empty())
        options.spokeLayout = spokeLayoutText(given.layout);
    return options;
}

// Prints the lines and the report of a session, from "recording to" to the summary.
class tRecord
{
public:
    tRecord(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_service(options.record.root, options.metricsFile, console),
          m_lines(console, options.record), m_session(recordOptions(options), m_lines)
    {}

    int run()
    {
        m_lines.onStart(m_session.interfaces(), state().file);
        m_session.updateState();
        m_service.onStart(m_session);
        m_started = tSteady::now();
        const std::uint64_t limit = m_options.duration.empty() ? UINT64_MAX : parseDuration(m_options.duration);
        std::uint64_t passed = 0;
        while (passed < limit && !m_stop.wait(milliseconds(std::min<std::uint64_t>(200, limit - passed))))
        {
            m_session.updateState();
            m_service.update(m_session);
            noteLoss();
            passed = elapsedMs(m_started);
            if (m_console.progressDue())
                showProgress(passed);
        }
        m_tookMs = elapsedMs(m_started);
        m_received = total(state().streams).messages;
        m_session.finish([this](eFinishing step) { return wait(step); });
        m_service.onFinished(m_session);
        m_missing = m_session.missingOnWire();
        noteLoss();
        return report();
    }

private:
    const tRecorderState& state() const { return m_session.state(); }

    void noteLoss()
    {
        if (state().lost > 0 && !m_lossNoted)
            m_console.note("kestova record: messages are being lost: is the disk full?");
        m_lossNoted = state().lost > 0;
    }

    // What a radar that goes on sends until the sockets are closed is recorded, too: its time counts.
    void noteLateArrivals()
    {
        const std::uint64_t received = total(state().streams).messages;
        if (received != m_received)
            m_tookMs = elapsedMs(m_started);
        m_received = received;
    }

    // A second Ctrl-C ends the wait.
    bool wait(eFinishing step)
    {
        noteLoss();
        noteLateArrivals();
        m_service.onFinishing(m_session);
        if (step == eFinishing::eWriting && m_console.progressDue())
            m_console.progress(fmt::format("writing what was received: {} messages wait", state().backlog));
        if (step == eFinishing::eCompressing && m_console.progressDue())
            m_console.progress(fmt::format("compressing: {} files wait", m_session.compressing()));
        return !m_stop.requestedAgain();
    }

    void showProgress(std::uint64_t passed)
    {
        const tStreamCount sum = total(state().streams);
        const auto now = tSteady::now();
        const double seconds = std::chrono::duration<double>(now - m_shownAt).count();
        std::string line = fmt::format("{}  {}  {:.0f}/s |", durationText(passed).substr(0, 8),
                                       rateText(static_cast<double>(sum.bytes - m_shown.bytes) / seconds),
                                       static_cast<double>(sum.messages - m_shown.messages) / seconds);
        m_shown = sum;
        m_shownAt = now;
        line += fmt::format(" backlog {} | dropped {} | lost {} | free {} |", state().backlog, state().allDiscarded(),
                            state().lost, sizeText(m_session.freeBytes()));
        for (const auto& [key, count] : state().streams)
            line += fmt::format(" {} {}", key.name(), count.messages);
        m_console.progress(line);
    }

    int report()
    {
        const bool complete = state().lost == 0 && state().allDiscarded() == 0;
        if (m_options.json)
            printJson(m_console, json(complete));
        else
            m_console.print(text());
        if (!complete)
            m_console.note(
                fmt::format("kestova record: incomplete: the kernel dropped {} datagrams, {} messages were not "
                            "written",
                            state().allDiscarded(), state().lost));
        if (m_session.allSilent())
            m_console.note("kestova record: nothing was recorded: no datagram came on any stream");
        return complete && !m_session.allSilent() ? eDone : eDamaged;
    }

    tJson silentJson() const
    {
        tJson rows = tJson::array();
        for (const tStreamKey& key : m_session.silent())
            rows.push_back({{"stream", key.name()}, {"address", key.address()}});
        return rows;
    }

    tJson reclaimedJson() const
    {
        tJson rows = tJson::array();
        for (const session::tReclaimed& file : m_session.reclaimed())
            rows.push_back({{"path", file.path}, {"bytes", file.bytes}, {"cause", file.cause}});
        return rows;
    }

    tJson json(bool complete) const
    {
        const tStreamCount sum = total(state().streams);
        tJson streams = streamsJson(state().streams, "datagrams");
        std::size_t row = 0;
        for (const auto& [key, count] : state().streams)
        {
            streams[row]["kernel_dropped"] = discarded(key);
            if (const auto missing = m_missing.find(key); missing != m_missing.end())
                streams[row]["missing_on_wire"] = missing->second;
            ++row;
        }
        tJson result = {
            {"schema", "kestova/record/2"}, {"files", m_session.files()},  {"duration_ms", m_tookMs},
            {"datagrams", sum.messages},    {"bytes", sum.bytes},          {"kernel_dropped", state().allDiscarded()},
            {"lost", state().lost},         {"complete", complete},        {"streams", streams},
            {"silent", silentJson()},       {"reclaimed", reclaimedJson()}};
        if (const auto missing = total(m_missing))
            result["missing_on_wire"] = *missing;
        return result;
    }

    std::string text() const
    {
        std::string out;
        for (const std::string& file : m_session.files())
            out += file + '\n';
        out += streamsText(state().streams, "datagrams");
        out += fmt::format("{} in {}; kernel dropped {}, not written {}",
                           rateText(perSecond(total(state().streams).bytes, m_tookMs)), durationText(m_tookMs),
                           state().allDiscarded(), state().lost);
        if (const auto missing = total(m_missing))
            out += fmt::format(", missing on the wire {}", *missing);
        return out + '\n';
    }

    std::uint64_t discarded(const tStreamKey& key) const
    {
        const auto known = state().discarded.find(key);
        return known != state().discarded.end() ? known->second : 0;
    }

    const tOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    tRecordService m_service;
    tRecordLines m_lines;
    session::tRecordSession m_session;
    tSteady::time_point m_started = tSteady::now();
    std::uint64_t m_tookMs = 0;    // to the last datagram, if that came after the end was asked for
    std::uint64_t m_received = 0;  // datagrams, while the session finishes
    tMissingCounts m_missing;
    bool m_lossNoted = false;
    tStreamCount m_shown;  // at the last progress line
    tSteady::time_point m_shownAt = tSteady::now();
};
}  // namespace

void addRecord(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("record", "Record a radar, or any groups, into data files");
    command.footer(
        "Records until Ctrl-C or --duration into a new folder below --root and ends with a table of what was\n"
        "recorded. Exit status 3 if anything was dropped or lost on the way, or if no datagram came. SIGHUP\n"
        "starts the next file where there is no controlling terminal.\n"
        "Examples: kestova record --radars radars.json --radar A1:2 --id 1 --root recordings\n"
        "          kestova record --group 239.17.0.1:6001 --local-ip eth0 --root recordings --duration 1h");
    addSource(command, *options);
    command.add_option("--root", options->record.root, "Storage root; made where it is missing")
        ->type_name("FOLDER")
        ->required();
    addDuration(command, options->duration);
    command.add_flag("--compress", options->record.compress, "Compress each file when it is finished");
    command.add_flag("--reclaim", options->record.reclaim,
                     "Delete the oldest data files below --root while less than 1 GiB is free");
    addLayout(command, options->layout);
    addPruneLimits(command, options->limits);
    command.add_option("--metrics-file", options->metricsFile, "Write metrics for Prometheus to this file, every 5 s")
        ->type_name("FILE");
    addJson(command, options->json);
    command.callback([options, &command, &chosen] {
        requireSource(command);
        chosen = [options](tConsole& console) { return tRecord(*options, console).run(); };
    });
}
}  // namespace tool
