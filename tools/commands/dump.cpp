// kestova dump: the records of data files, one by one.
#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>

#include "KestovaRecordings/livecursor.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/streamchoice.h"
#include "KestovaRecordings/survey.h"
#include "sessions/report/decodedlines.h"
#include "sessions/report/payloadtext.h"
#include "sessions/report/recordrow.h"
#include "tools/commands/commands.h"
#include "tools/commands/spokelayouts.h"
#include "tools/shell/console.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"

namespace tool
{
using namespace recordings;
using namespace session;

namespace
{
struct tOptions : tRecordingOptions
{
    std::vector<std::string> streams;
    std::string from, to;
    std::uint64_t limit = std::numeric_limits<std::uint64_t>::max();
    std::optional<std::uint64_t> bytes;  // of each payload
    bool all = false;
    bool text = false;
    bool follow = false;
    bool decode = false;
    std::string layout;
};

constexpr std::chrono::milliseconds cLook{20};  // for what is being recorded
constexpr std::uint64_t cBytesShown = 32;       // of payloads that are not shown as text
// What is looked at beside the records that are shown, for spokes and sentences that are split over several.
constexpr double cMsBefore = 1000;
constexpr std::size_t cMostBehind = 10'000;

// Returns the numbers of the records in order of time; records of equal times keep their order.
std::vector<std::size_t> timeOrder(const storage::tDataFile& file)
{
    std::vector<std::size_t> order(file.recordCount());
    std::iota(order.begin(), order.end(), std::size_t{0});
    const auto earlier = [&](std::size_t a, std::size_t b) { return file.record(a).timeMs < file.record(b).timeMs; };
    if (!std::is_sorted(order.begin(), order.end(), earlier))
        std::stable_sort(order.begin(), order.end(), earlier);
    return order;
}

class tDump
{
public:
    tDump(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_streams(parseStreams(options.streams)), m_left(options.limit)
    {}

    int run()
    {
        tFoundFiles found = findAllRecordings(m_options.paths, m_options.suffix);
        m_leftOut = std::move(found.leftOut);
        if (!m_options.follow)
            requireStreams(found.files, m_streams);
        m_fromMs = timeOf(m_options.from, 0.0);
        m_toMs = timeOf(m_options.to, std::numeric_limits<double>::max());
        if (m_options.decode)
            startDecoding(found.files);
        bool any = m_options.follow;
        const auto live = m_options.follow ? std::make_unique<tLiveCursor>(found.files, m_options.suffix) : nullptr;
        for (const std::string& path : found.files)
        {
            if (isOver() || m_stop.requested())
                break;
            if (live && path == live->file())
                continue;
            if (const auto present = presentForm(path, found.files, m_options.suffix))
                any = dumpFile(*present) || any;
        }
        if (live)
            dumpLive(*live);
        if (!any && m_left > 0 && !m_stop.requested())
            throw nothingLeft(m_leftOut);
        if (m_decoded)
            m_decoded->finish();
        return report();
    }

private:
    // Places that count from an end of the recording need its span.
    double timeOf(const std::string& place, double otherwise)
    {
        if (place.empty())
            return otherwise;
        const tMoment moment = parseMoment(place);
        if (moment.kind != tMoment::eAbsolute && !m_survey)
            m_survey = surveyRecordings(m_options.paths, m_options.suffix);
        return m_survey ? moment.resolve(m_survey->firstMs, m_survey->lastMs) : moment.value;
    }

    void startDecoding(const std::vector<std::string>& files)
    {
        tSpokeLayouts layouts = knownSpokeLayouts(files, m_options.layout);
        if (layouts.empty())
            m_console.note("kestova dump: no sheet says how spokes are laid out: they are not decoded without "
                           "--layout FILE");
        m_decoded.emplace(std::move(layouts), [this](tDecodedLine&& line) { print(std::move(line)); });
    }

    int report()
    {
        if (m_options.json && !m_leftOut.empty())
            printJson(m_console, {{"schema", "kestova/dump/2"}, {"skipped", leftOutJson(m_leftOut)}});
        m_console.flush();
        if (m_damaged > 0)
            m_console.note(fmt::format("kestova dump: {} damaged records were skipped", m_damaged));
        return worseStatus(m_damaged > 0 ? eDamaged : eDone, reportLeftOut(m_console, "dump", m_leftOut));
    }

    // Returns false for a file that is left out.
    bool dumpFile(const std::string& path)
    {
        storage::tDataFile file;
        std::string error;
        if (file.open(path, &error) && file.recordCount() > 0 && !isReadable(file))
            error = "none of its records can be read";
        if (!error.empty())
        {
            const bool asked = std::ranges::find(m_options.paths, path) != m_options.paths.end();
            m_leftOut.push_back(leftOut(path, error, asked));
            return false;
        }
        dumpRecords(file);
        return true;
    }

    // To the end of the recording that is followed, or to --to.
    void dumpLive(tLiveCursor& live)
    {
        tLiveRecord record;
        while (!isOver() && !m_stop.requested())
        {
            if (!live.next(record))
            {
                m_console.flush();
                if (live.over() || m_stop.wait(cLook))
                    break;
                continue;
            }
            const double time = static_cast<double>(record.timeMs);
            const bool isShown = isWanted(time);
            if (!isShown && !isBeside(time))
            {
                if (time > m_toMs)
                    break;
                continue;
            }
            m_segment.assign(record.bytes, record.len);
            dumpRecord(live.file(), record.timeMs, isShown);
        }
        m_damaged += live.damaged();
    }

    void dumpRecords(storage::tDataFile& file)
    {
        m_damaged += file.damagedCount();
        for (const std::size_t i : timeOrder(file))
        {
            if (isOver() || m_stop.requested())
                return;
            const std::uint64_t timeMs = file.record(i).timeMs;
            const bool isShown = isWanted(static_cast<double>(timeMs));
            if (!isShown && !isBeside(static_cast<double>(timeMs)))
                continue;
            if (file.read(i, m_segment))
                dumpRecord(file.path(), timeMs, isShown);
            else
                m_damaged += isShown ? 1 : 0;
        }
    }

    bool isWanted(double timeMs) const { return m_left != 0 && timeMs >= m_fromMs && timeMs <= m_toMs; }
    // Returns whether the record may hold a part of what is shown.
    bool isBeside(double timeMs)
    {
        if (!m_decoded)
            return false;
        if (timeMs < m_fromMs)
            return timeMs + cMsBefore >= m_fromMs;
        return needsMore() && m_behind++ < cMostBehind;
    }
    bool needsMore() const { return m_decoded && m_decoded->isWaiting() && m_behind < cMostBehind; }
    bool isOver() const { return m_left == 0 && !needsMore(); }

    void dumpRecord(const std::string& file, std::uint64_t timeMs, bool isShown)
    {
        const auto package = viewPackage(m_segment);
        if (package ? !m_streams.includes(package->info.rwType) : !m_streams.includesAll())
            return;
        const std::string_view bytes = package ? package->payload : std::string_view(m_segment);
        std::optional<tDecodedLine> line;
        if (isShown)
        {
            line.emplace();
            if (m_options.json)
                line->json = json(file, timeMs, package, bytes);
            else
                line->text = text(timeMs, package, bytes);
            --m_left;
        }
        if (m_decoded)
            m_decoded->add(keyOf(package), bytes, timeMs, std::move(line));
        else if (line)
            print(std::move(*line));
    }

    void print(tDecodedLine&& line)
    {
        if (m_options.json)
            printJson(m_console, m_options.decode ? decodedJson(std::move(line)) : std::move(line.json));
        else
            m_console.print(decodedText(line, m_options.all ? SIZE_MAX : m_options.bytes.value_or(cBytesShown)));
    }

    bool asText(std::string_view bytes) const { return m_options.text && holdsSentence(bytes); }

    std::string_view shown(std::string_view bytes) const
    {
        if (m_options.all || (!m_options.bytes && asText(bytes)))
            return bytes;
        return bytes.substr(0, m_options.bytes.value_or(cBytesShown));
    }

    std::string text(std::uint64_t timeMs, const std::optional<tPackageContents>& package, std::string_view bytes) const
    {
        const tStreamKey key = keyOf(package);
        const std::string_view part = shown(bytes);
        return fmt::format("{}  {:<16} {:<19} {:<21} {:>5}  {}{}\n", timeText(timeMs), key.name(),
                           package ? messageTitle(package->info.type) : "-", package ? key.address() : "-",
                           bytes.size(), asText(bytes) ? escapedText(part) : hexText(part),
                           part.size() < bytes.size() ? "..." : "");
    }

    tJson json(const std::string& file, std::uint64_t timeMs, const std::optional<tPackageContents>& package,
               std::string_view bytes) const
    {
        tJson line = {{"schema", "kestova/dump/2"}, {"file", file}};
        putRecord(line, {timeMs, package, bytes, shown(bytes).size(), asText(bytes)});
        return line;
    }

    const tOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    tStreamChoice m_streams;
    std::uint64_t m_left;
    double m_fromMs = 0.0, m_toMs = 0.0;
    std::optional<tSurvey> m_survey;  // only if a place needs it
    std::optional<tDecodedLines> m_decoded;
    std::size_t m_behind = 0;  // records that were looked at behind those that are shown
    std::string m_segment;
    std::uint64_t m_damaged = 0;
    std::vector<tLeftOut> m_leftOut;
};
}  // namespace

void addDump(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("dump", "Show records one by one");
    command.footer("One line a record: time, stream, kind of message, group, length, payload as hex.\n"
                   "Example: kestova dump recordings --streams gpsDev --from +00:01:00 --limit 10 --text");
    addPaths(command, options->paths);
    addSuffix(command, options->suffix);
    addStreams(command, options->streams);
    for (const auto& [name, text, help] :
         {std::tuple{"--from", &options->from, "Not before this place: +90s, -90s, 50% or \"2024-05-17 08:30:00\""},
          std::tuple{"--to", &options->to, "Not after this place"}})
        command.add_option(name, *text, help)->type_name("PLACE")->check(checkedBy(parseMoment));
    command.add_option("--limit", options->limit, "At most so many records")->type_name("N")->check(wholeNumber());
    CLI::Option* const bytes =
        command.add_option("--bytes", options->bytes, "Bytes of each payload to show (32; sentences whole)")
            ->type_name("N")
            ->check(wholeNumber());
    command.add_flag("--all", options->all, "Show whole payloads")->excludes(bytes);
    command.add_flag("--text", options->text, "Show payloads with sentences ($GPRMC,..., !AIVDM,...) as escaped text");
    command.add_flag("--follow", options->follow, "Go on while it is being recorded, until its recorder ends");
    CLI::Option* const decode =
        command.add_flag("--decode", options->decode, "Show the spokes and sentences in the payloads");
    addLayout(command, options->layout);
    command.get_option("--layout")->needs(decode);
    command.add_flag("--json", options->json, "One JSON object a line");
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return tDump(*options, console).run(); }; });
}
}  // namespace tool
