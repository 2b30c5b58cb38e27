// kestova replay: plays a recording to the terminal, as a summary of what passes.
#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <memory>

#include "tools/command.h"
#include "tools/console.h"
#include "tools/failure.h"
#include "tools/options.h"
#include "tools/recordings.h"
#include "tools/replaysession.h"
#include "tools/report.h"
#include "tools/stopsignal.h"
#include "tools/units.h"

namespace tool
{
namespace
{
using std::chrono::milliseconds;

struct tOptions
{
    std::string path;
    std::string suffix = ".data";
    std::vector<std::string> streams;
    std::string start;
    double speed = 1.0;
    std::uint64_t passes = 1;  // 0: until Ctrl-C
    bool json = false;
};

// The speeds that the library plays: whole multiples up to 10, and 1 / (n + 1) below 1.
double playedSpeed(double asked)
{
    if (asked >= 1.0)
        return std::floor(asked);
    return 1.0 / (std::min(10.0, std::floor(1.0 / asked)) + 1.0);
}

// Refuses what would end at once without a word.
void requirePlayable(const tOptions& options)
{
    std::string reason = "it holds no records";
    for (const std::string& path : findRecordings(options.path, options.suffix))
    {
        storage::tDataFile file;
        if (!file.open(path, &reason))
            continue;
        if (isReadable(file))
            return;
        reason = file.kind() == storage::cHuffmanFileHead
                     ? path + " is Huffman-compressed, which this version cannot read"
                     : path + " holds no records";
    }
    throw tFailure(fmt::format("nothing to play in {}: {}", options.path, reason));
}

class tReplay
{
public:
    tReplay(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_session(parseStreams(options.streams), !options.start.empty()),
          m_storage("", options.suffix.c_str())
    {}

    int run()
    {
        m_storage.OpenReadDataFileorFolder(m_options.path, &m_session);
        if (open())
            playAll();
        m_storage.CloseReadingFile();
        return report();
    }

private:
    // False if the end was asked for first.
    bool open()
    {
        while (!m_session.state().opened)
        {
            if (m_stop.wait(milliseconds(2)))
                return false;
        }
        m_storage.FastSlowForward(m_options.speed);
        const tReplayState state = m_session.state();
        if (!m_options.start.empty())
            m_startMs = static_cast<std::uint64_t>(
                std::max(0.0, parseMoment(m_options.start).resolve(state.firstMs, state.lastMs)));
        m_startMs = std::max(m_startMs, state.firstMs);
        if (m_startMs > state.lastMs)
            throw tFailure(fmt::format("--start {} lies behind the end: the recording lasts {}", m_options.start,
                                       durationText(state.lastMs - state.firstMs)));
        if (!m_options.start.empty())
            jump();
        m_console.note(fmt::format("playing {} to {} at {:.2g}x", localTimeText(m_startMs), localTimeText(state.lastMs),
                                   playedSpeed(m_options.speed)));
        return true;
    }

    void playAll()
    {
        for (m_passes = 1;; ++m_passes)
        {
            if (!playToEnd() || m_passes == m_options.passes)
                return;
            m_session.beginPass();
            jump();
        }
    }

    bool playToEnd()
    {
        while (!m_session.state().ended)
        {
            if (m_stop.wait(milliseconds(20)))
                return false;
            if (m_console.progressDue())
                showProgress();
        }
        m_ended = true;
        return true;
    }

    void jump()
    {
        const tReplayState state = m_session.state();
        const double span = static_cast<double>(state.lastMs - state.firstMs);
        // A quarter of a millisecond early, so that no rounding can leave out the records of the very start.
        const double offset = static_cast<double>(m_startMs - state.firstMs) - 0.25;
        m_ended = false;
        while (!m_storage.Jump(span > 0.0 ? std::max(0.0, offset / span) : 0.0))
        {
            if (m_stop.wait(milliseconds(2)))
                return;
        }
    }

    void showProgress()
    {
        const tReplayState state = m_session.state();
        m_console.progress(fmt::format("{}  {:>7}  {:.1f}x  {} records  {}", localTimeText(state.timeMs),
                                       percentText(state.progress), pace(state), state.records,
                                       sizeText(total(m_session.table()).bytes)));
    }

    static double pace(const tReplayState& state)
    {
        return state.tookMs == 0 ? 0.0 : static_cast<double>(state.playedMs) / static_cast<double>(state.tookMs);
    }

    // Records of finished files that the index describes and the replay could not give back.
    std::uint64_t countDamaged() const
    {
        std::uint64_t damaged = 0;
        const bool whole = m_ended && m_passes == 1 && m_startMs <= m_session.state().firstMs;
        for (const auto& [path, played] : m_session.recordsPerFile())
        {
            storage::tDataFile file;
            if (!file.open(path))
                continue;
            damaged += file.damagedCount();
            if (whole && file.finished() && file.recordCount() > played)
                damaged += file.recordCount() - played;
        }
        return damaged;
    }

    int report()
    {
        const std::uint64_t damaged = countDamaged();
        if (m_options.json)
            printJson(m_console, json(damaged));
        else
            m_console.print(text());
        if (damaged == 0)
            return eDone;
        m_console.note(fmt::format("kestova replay: {} damaged records were skipped; see kestova info", damaged));
        return eDamaged;
    }

    tJson json(std::uint64_t damaged) const
    {
        const tReplayState state = m_session.state();
        return {{"schema", "kestova/replay/1"},
                {"path", m_options.path},
                {"first_ms", state.firstMs},
                {"last_ms", state.lastMs},
                {"start_ms", m_startMs},
                {"speed", playedSpeed(m_options.speed)},
                {"passes", m_passes},
                {"ended", m_ended},
                {"played_ms", state.playedMs},
                {"took_ms", state.tookMs},
                {"pace", pace(state)},
                {"records", state.records},
                {"bytes", total(m_session.table()).bytes},
                {"damaged", damaged},
                {"streams", streamsJson(m_session.table(), "records")}};
    }

    std::string text() const
    {
        const tReplayState state = m_session.state();
        return streamsText(m_session.table(), "records") + fmt::format("played {} in {}, mean pace {:.3f}\n",
                                                                       durationText(state.playedMs),
                                                                       durationText(state.tookMs), pace(state));
    }

    const tOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    std::uint64_t m_startMs = 0;
    std::uint64_t m_passes = 0;
    bool m_ended = false;
    tReplaySession m_session;
    storage::tDataStorageIO m_storage;  // last: its threads call m_session
};
}  // namespace

void addReplay(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("replay", "Play a recording to the terminal");
    command.footer("Plays at the recorded pace and ends with a table of what was played.\n"
                   "Example: kestova replay recordings --start 00:10:00 --speed 4 --streams imageStream,arpaStream");
    command.add_option("path", options->path, "Data file, or folder with data files")
        ->type_name("FILE|FOLDER")
        ->required();
    command.add_option("--suffix", options->suffix, "What names of data files in a folder end in")
        ->capture_default_str();
    command.add_option("--speed", options->speed, "2 to 10 fast; 0.5 plays a third, 0.1 an eleventh of the pace")
        ->check(CLI::Range(0.1, 10.0))
        ->capture_default_str();
    command.add_option("--start", options->start, "Where to begin: 0.5, 90s, 00:01:30 or \"2024-05-17 08:30:00\"")
        ->type_name("PLACE")
        ->check(checkedBy(parseMoment));
    addStreams(command, options->streams);
    CLI::Option* const loop =
        command.add_option("--loop", options->passes, "Play so many times; until Ctrl-C without a number")
            ->type_name("[N]")
            ->expected(0, 1)
            ->check(CLI::PositiveNumber);
    command.add_flag("--json", options->json, "Results as one JSON object");
    command.callback([options, loop, &chosen] {
        if (!loop->empty() && loop->results().front().empty())
            options->passes = 0;
        chosen = [options](tConsole& console) {
            requirePlayable(*options);
            return tReplay(*options, console).run();
        };
    });
}
}  // namespace tool
