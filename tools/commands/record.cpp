// kestova record: a radar's streams, or any groups, into data files.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <thread>

#include "tools/shell/command.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"

#include "KestovaRecordings/groupaddress.h"
#include "sessions/localaddress.h"
#include "sessions/record/grouprecording.h"
#include "sessions/record/radarrecording.h"
#include "sessions/record/recordingplace.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
namespace
{
constexpr char cSuffix[] = ".data";

using tSteady = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct tOptions
{
    tRadarChoice radar;
    std::vector<std::string> streams;
    std::vector<std::string> groups;
    std::string localIp;
    std::string root;
    std::string duration;
    bool compress = false;
    bool json = false;
};

std::uint64_t elapsedMs(tSteady::time_point since)
{
    return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(tSteady::now() - since).count());
}

// Follows a recording from "recording to" to its summary.
class tRecordingSession
{
public:
    tRecordingSession(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_recording(begin())
    {}

    int run()
    {
        look();
        announce();
        const auto started = tSteady::now();
        const std::uint64_t limit = m_options.duration.empty() ? UINT64_MAX : parseDuration(m_options.duration);
        std::uint64_t passed = 0;
        while (passed < limit && !m_stop.wait(milliseconds(std::min<std::uint64_t>(200, limit - passed))))
        {
            look();
            passed = elapsedMs(started);
            if (m_console.progressDue())
                showProgress(passed);
        }
        m_tookMs = elapsedMs(started);
        finish();
        return report();
    }

private:
    std::unique_ptr<iRecording> begin() const
    {
        if (m_options.groups.empty())
            return std::make_unique<tRadarRecording>(m_options.radar, parseStreams(m_options.streams),
                                                     m_options.localIp, m_options.root, m_options.compress);
        std::vector<NetAddress> groups;
        for (const std::string& group : m_options.groups)
            groups.push_back(parseGroup(group));
        const std::uint32_t ip = m_options.localIp.empty() ? 0 : localAddress(m_options.localIp);
        return std::make_unique<tGroupRecording>(groups, ip, m_options.root, m_options.compress);
    }

    // Takes the state, and the names of the files that the recording has gone through.
    void look()
    {
        m_state = m_recording->state();
        if (!m_state.file.empty() && (m_files.empty() || m_files.back() != m_state.file))
            m_files.push_back(m_state.file);
        if (m_state.lost > 0 && !m_lossTold)
            m_console.note("kestova record: messages are being lost: is the disk full?");
        m_lossTold = m_state.lost > 0;
    }

    void announce() { m_console.note("recording to " + m_state.file); }

    void showProgress(std::uint64_t passed)
    {
        const tStreamCount sum = total(m_state.streams);
        const auto now = tSteady::now();
        const double seconds = std::chrono::duration<double>(now - m_shownAt).count();
        std::string line = fmt::format("{}  {}  {:.0f} datagrams/s |", durationText(passed).substr(0, 8),
                                       rateText(static_cast<double>(sum.bytes - m_shown.bytes) / seconds),
                                       static_cast<double>(sum.messages - m_shown.messages) / seconds);
        m_shown = sum;
        m_shownAt = now;
        std::error_code error;
        const auto space = std::filesystem::space(m_options.root, error);
        line += fmt::format(" backlog {} | dropped {} | lost {} | free {} |", m_state.backlog, m_state.allDiscarded(),
                            m_state.lost, error ? "?" : sizeText(space.available));
        for (const auto& [key, count] : m_state.streams)
            line += fmt::format(" {} {}", key.name(), count.messages);
        m_console.progress(line);
    }

    // What was sent before the end was asked for may still lie in the kernel: received until it is quiet for a moment,
    // but not for ever beside a radar that goes on sending.
    void drain()
    {
        constexpr milliseconds quiet{150};
        const auto deadline = tSteady::now() + milliseconds(1000);
        auto lastHeard = tSteady::now();
        std::uint64_t heard = total(m_state.streams).messages;
        while (tSteady::now() < deadline && tSteady::now() - lastHeard < quiet)
        {
            std::this_thread::sleep_for(milliseconds(10));
            look();
            if (total(m_state.streams).messages != heard)
                lastHeard = tSteady::now();
            heard = total(m_state.streams).messages;
        }
    }

    void finish()
    {
        drain();
        m_recording->closeSockets();
        const auto deadline = tSteady::now() + std::chrono::minutes(5);
        while (!m_recording->waitWritten(200))
        {
            look();
            // Whoever presses Ctrl-C again does not want to wait for a disk that cannot follow.
            if (m_stop.requestedAgain() || tSteady::now() > deadline || m_state.file.empty())
                break;
            if (m_console.progressDue())
                m_console.progress(fmt::format("writing what was received: {} messages wait", m_state.backlog));
        }
        look();
        m_recording->closeFile();
        const auto discarded = m_state.discarded;
        look();
        m_state.discarded = discarded;
        compress();
    }

    // Files are compressed when they are finished. Whoever presses Ctrl-C again has the last ones plain.
    void compress()
    {
        while (m_recording->compressing() != 0)
        {
            if (m_stop.requestedAgain())
                m_recording->giveUpCompressing();
            if (m_console.progressDue())
                m_console.progress(fmt::format("compressing: {} files wait", m_recording->compressing()));
            std::this_thread::sleep_for(milliseconds(20));
        }
        for (std::string& file : m_files)
            if (!std::filesystem::exists(file))
                file.replace(file.find(cSuffix, file.rfind('/') + 1), std::string::npos, std::string(".tar") + cSuffix);
    }

    int report()
    {
        const bool complete = m_state.lost == 0 && m_state.allDiscarded() == 0;
        if (m_options.json)
            printJson(m_console, json(complete));
        else
            m_console.print(text());
        if (!complete)
            m_console.note(
                fmt::format("kestova record: incomplete: the kernel dropped {} datagrams, {} messages were not "
                            "written",
                            m_state.allDiscarded(), m_state.lost));
        return complete ? eDone : eDamaged;
    }

    tJson json(bool complete) const
    {
        const tStreamCount sum = total(m_state.streams);
        tJson streams = streamsJson(m_state.streams, "datagrams");
        std::size_t row = 0;
        for (const auto& [key, count] : m_state.streams)
            streams[row++]["kernelDropped"] = discarded(key);
        return {{"schema", "kestova/record/1"}, {"files", m_files},     {"duration_ms", m_tookMs},
                {"datagrams", sum.messages},    {"bytes", sum.bytes},   {"kernelDropped", m_state.allDiscarded()},
                {"lost", m_state.lost},         {"complete", complete}, {"streams", streams}};
    }

    std::string text() const
    {
        std::string out;
        for (const std::string& file : m_files)
            out += file + '\n';
        out += streamsText(m_state.streams, "datagrams");
        return out + fmt::format("{} in {}; kernel dropped {}, not written {}\n",
                                 rateText(perSecond(total(m_state.streams).bytes, m_tookMs)), durationText(m_tookMs),
                                 m_state.allDiscarded(), m_state.lost);
    }

    std::uint64_t discarded(const tStreamKey& key) const
    {
        const auto known = m_state.discarded.find(key);
        return known != m_state.discarded.end() ? known->second : 0;
    }

    const tOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    std::unique_ptr<iRecording> m_recording;
    tRecordingState m_state;
    std::vector<std::string> m_files;
    std::uint64_t m_tookMs = 0;
    bool m_lossTold = false;
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
        "recorded. Exit status 3 if anything was dropped or lost on the way.\n"
        "Examples: kestova record --radars radars.json --radar A1:2 --id 1 --root recordings\n"
        "          kestova record --group 239.17.0.1:6001 --local-ip eth0 --root recordings --duration 1h");
    CLI::Option* const directory = addRadar(command, options->radar);
    CLI::Option* const radar = command.get_option("--radar")->needs(directory);
    directory->needs(radar);
    command.get_option("--id")->needs(radar);
    CLI::Option* const streams = addStreams(command, options->streams)->needs(radar);
    CLI::Option* const group = command.add_option("--group", options->groups, "A group to record, repeatable")
                                   ->type_name("ADDRESS:PORT")
                                   ->check(checkedBy(parseGroup))
                                   ->excludes(radar)
                                   ->excludes(streams);
    command.add_option("--local-ip", options->localIp, "Interface to receive on, by address or name")
        ->type_name("ADDRESS");
    command.add_option("--root", options->root, "Storage root; made where it is missing")
        ->type_name("FOLDER")
        ->required();
    command.add_option("--duration", options->duration, "End after this time; until Ctrl-C where it is not given")
        ->type_name("SEC")
        ->check(checkedBy(parseDuration));
    command.add_flag("--compress", options->compress, "Compress each file when it is finished");
    command.add_flag("--json", options->json, "Results as one JSON object");
    command.callback([options, radar, group, &chosen] {
        if (radar->empty() && group->empty())
            throw CLI::RequiredError("--radar or --group");
        chosen = [options](tConsole& console) { return tRecordingSession(*options, console).run(); };
    });
}
}  // namespace tool
