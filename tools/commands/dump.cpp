// kestova dump: the records of data files, one by one.
#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <memory>
#include <numeric>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/streamchoice.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions : tRecordingOptions
{
    std::vector<std::string> streams;
    std::string from, to;
    std::uint64_t limit = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t bytes = 32;
    bool all = false;
};

tMoment parsePlace(const std::string& text)
{
    const tMoment moment = parseMoment(text);
    if (moment.kind == tMoment::eFraction)
        throw std::invalid_argument("'" + text + "' is no time: write 90s, 00:01:30 or \"2024-05-17 08:30:00\"");
    return moment;
}

std::string hex(std::string_view bytes)
{
    constexpr char cDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char c : bytes)
    {
        text += cDigits[static_cast<unsigned char>(c) >> 4];
        text += cDigits[static_cast<unsigned char>(c) & 15];
    }
    return text;
}

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
        const auto paths = findRecordings(m_options.path, m_options.suffix);
        for (const std::string& path : paths)
        {
            storage::tDataFile file;
            std::string error;
            if (file.open(path, &error))
                dumpFile(file);
            else if (paths.size() == 1)
                throw tFailure(error);
            else
                skip(error);
            if (m_left == 0 || m_stop.requested())
                break;
        }
        m_console.flush();
        if (m_damaged > 0)
            m_console.note(fmt::format("kestova dump: {} damaged records were skipped", m_damaged));
        return m_damaged > 0 || m_skipped > 0 ? eDamaged : eDone;
    }

private:
    void skip(const std::string& why)
    {
        ++m_skipped;
        m_console.note("kestova dump: skipped: " + why);
    }

    void dumpFile(storage::tDataFile& file)
    {
        m_damaged += file.damagedCount();
        if (file.recordCount() > 0 && !isReadable(file))
            return skip(file.path() + ": none of its records can be read");
        for (const std::size_t i : timeOrder(file))
        {
            if (m_left == 0 || m_stop.requested())
                return;
            const storage::tDataFileRecord record = file.record(i);
            if (!inSpan(record.timeMs))
                continue;
            if (file.read(i, m_segment))
                dumpRecord(file, record.timeMs);
            else
                ++m_damaged;
        }
    }

    // Offsets count from the first record of the dump.
    bool inSpan(std::uint64_t timeMs)
    {
        if (!m_spanKnown)
        {
            m_spanKnown = true;
            m_fromMs = m_options.from.empty() ? 0.0 : parsePlace(m_options.from).resolve(timeMs, timeMs);
            m_toMs = m_options.to.empty() ? std::numeric_limits<double>::max()
                                          : parsePlace(m_options.to).resolve(timeMs, timeMs);
        }
        const double time = static_cast<double>(timeMs);
        return time >= m_fromMs && time <= m_toMs;
    }

    void dumpRecord(const storage::tDataFile& file, std::uint64_t timeMs)
    {
        const auto package = viewPackage(m_segment);
        if (package ? !m_streams.includes(package->info.rwType) : !m_streams.includesAll())
            return;
        const std::string_view bytes = package ? package->payload : std::string_view(m_segment);
        if (m_options.json)
            printJson(m_console, json(file, timeMs, package, bytes));
        else
            m_console.print(text(timeMs, package, bytes));
        --m_left;
    }

    std::string_view shown(std::string_view bytes) const
    {
        return m_options.all ? bytes : bytes.substr(0, m_options.bytes);
    }

    std::string text(std::uint64_t timeMs, const std::optional<tPackageContents>& package, std::string_view bytes) const
    {
        const tStreamKey key =
            package ? tStreamKey::of(package->info.rwType, package->ip, package->port) : tStreamKey::raw();
        return fmt::format("{}  {:<16} {:<19} {:<21} {:>5}  {}{}\n", timeText(timeMs), key.name(),
                           package ? messageTitle(package->info.type) : "-", package ? key.address() : "-",
                           bytes.size(), hex(shown(bytes)), shown(bytes).size() < bytes.size() ? "..." : "");
    }

    tJson json(const storage::tDataFile& file, std::uint64_t timeMs, const std::optional<tPackageContents>& package,
               std::string_view bytes) const
    {
        tJson line = {{"schema", "kestova/dump/1"}, {"file", file.path()}, {"time_ms", timeMs}};
        if (package)
        {
            const tStreamKey key = tStreamKey::of(package->info.rwType, package->ip, package->port);
            const tUdpMsgInfo& info = package->info;
            line["stream"] = key.name();
            line["kind"] = messageTitle(info.type);
            line["address"] = key.address();
            line["sequence"] = package->sequence;
            line["package_ms"] = package->timeMs;
            line["info"] = {info.sender, info.recver, info.type, info.rwType, info.radarMultiNum};
        }
        else
            line["stream"] = "raw";
        line["length"] = bytes.size();
        line["payload"] = hex(shown(bytes));
        line["truncated"] = shown(bytes).size() < bytes.size();
        return line;
    }

    const tOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    tStreamChoice m_streams;
    std::uint64_t m_left;
    bool m_spanKnown = false;
    double m_fromMs = 0.0, m_toMs = 0.0;
    std::string m_segment;
    std::uint64_t m_damaged = 0, m_skipped = 0;
};
}  // namespace

void addDump(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("dump", "Show records one by one");
    command.footer("One line a record: time, stream, kind of message, group, length, payload as hex.\n"
                   "Example: kestova dump recordings --streams gpsDev --from 00:01:00 --limit 10 --all");
    addPath(command, options->path);
    addSuffix(command, options->suffix);
    addStreams(command, options->streams);
    for (const auto& [name, text, help] :
         {std::tuple{"--from", &options->from, "Not before this time: 90s, 00:01:30 or \"2024-05-17 08:30:00\""},
          std::tuple{"--to", &options->to, "Not after this time"}})
        command.add_option(name, *text, help)->type_name("TIME")->check(checkedBy(parsePlace));
    command.add_option("--limit", options->limit, "At most so many records");
    CLI::Option* const bytes =
        command.add_option("--bytes", options->bytes, "Bytes of each payload to show")->capture_default_str();
    command.add_flag("--all", options->all, "Show whole payloads")->excludes(bytes);
    command.add_flag("--json", options->json, "One JSON object a line");
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return tDump(*options, console).run(); }; });
}
}  // namespace tool
