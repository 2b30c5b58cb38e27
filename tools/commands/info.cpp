// kestova info: what is in a data file or a folder of them.
#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/failure.h"
#include "tools/shell/command.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/packageview.h"
#include "KestovaRecordings/streamhistory.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
namespace
{
struct tOptions
{
    std::string path;
    std::string suffix = ".data";
    std::string gap = "2";
    bool digest = false;
    bool json = false;
};

struct tFileInfo
{
    std::string path;
    std::string error;  // why it is no data file; empty otherwise
    storage::tFileHeadSymbol kind = storage::cDataFileHead;
    bool readable = true;  // this version can look into its segments
    bool finished = false;
    std::uint64_t size = 0, records = 0, bytes = 0, damaged = 0;
    std::uint64_t firstMs = 0, lastMs = 0;
    tHistories streams;
};

struct tTotals
{
    std::uint64_t size = 0, records = 0, bytes = 0, damaged = 0, skipped = 0;
    std::uint64_t firstMs = 0, lastMs = 0;
    tHistories streams;
};

// Looks through files one after the other.
class tScan
{
public:
    tScan(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_gapMs(parseDuration(options.gap))
    {}

    // False if the end was asked for before everything was looked through.
    bool run()
    {
        const auto paths = findRecordings(m_options.path, m_options.suffix);
        std::filesystem::path folder;
        for (std::size_t i = 0; i < paths.size() && !m_stop.requested(); ++i)
        {
            m_position = fmt::format("{} of {} files", i + 1, paths.size());
            if (const auto parent = std::filesystem::path(paths[i]).parent_path(); parent != folder)
            {
                for (auto& [key, stream] : m_totals.streams)
                    stream.interrupt();
                folder = parent;
            }
            add(look(paths[i]));
        }
        if (m_files.size() == 1 && !m_files[0].error.empty() && paths.size() == 1)
            throw tFailure(m_files[0].error);
        return !m_stop.requested();
    }

    const std::vector<tFileInfo>& files() const { return m_files; }
    const tTotals& totals() const { return m_totals; }

private:
    tFileInfo look(const std::string& path)
    {
        tFileInfo info;
        info.path = path;
        storage::tDataFile file;
        if (!file.open(path, &info.error))
            return info;
        info.error.clear();
        info.kind = file.kind();
        info.finished = file.finished();
        info.size = file.size();
        info.records = file.recordCount();
        info.bytes = file.payloadBytes();
        info.damaged = file.damagedCount();
        info.readable = info.records == 0 || isReadable(file) || info.kind == storage::cDataFileHead;
        for (std::size_t i = 0; i < file.recordCount() && !m_stop.requested(); ++i)
            lookAt(file, i, info);
        return info;
    }

    void lookAt(storage::tDataFile& file, std::size_t i, tFileInfo& info)
    {
        const std::uint64_t timeMs = file.record(i).timeMs;
        info.firstMs = info.firstMs == 0 ? timeMs : std::min(info.firstMs, timeMs);
        info.lastMs = std::max(info.lastMs, timeMs);
        if (!info.readable)
            return;
        if (!file.read(i, m_segment))
        {
            ++info.damaged;
            return;
        }
        const auto package = viewPackage(m_segment);
        const tStreamKey key =
            package ? tStreamKey::of(package->info.rwType, package->ip, package->port) : tStreamKey::raw();
        const std::string_view message = package ? package->payload : std::string_view(m_segment);
        info.streams[key].add(timeMs, message, m_gapMs, m_options.digest);
        m_totals.streams[key].add(timeMs, message, m_gapMs, m_options.digest);
        if (i % 1024 == 0 && m_console.progressDue())
            m_console.progress(fmt::format("{}: {} of {} records", m_position, i, info.records));
    }

    void add(tFileInfo info)
    {
        m_totals.skipped += info.error.empty() ? 0 : 1;
        m_totals.size += info.size;
        m_totals.records += info.records;
        m_totals.bytes += info.bytes;
        m_totals.damaged += info.damaged;
        if (info.records > 0)
            m_totals.firstMs = m_totals.firstMs == 0 ? info.firstMs : std::min(m_totals.firstMs, info.firstMs);
        m_totals.lastMs = std::max(m_totals.lastMs, info.lastMs);
        m_files.push_back(std::move(info));
    }

    const tOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    std::uint64_t m_gapMs;
    std::string m_position;
    std::string m_segment;
    std::vector<tFileInfo> m_files;
    tTotals m_totals;
};

tJson streamsOf(const tHistories& streams, bool withDigest)
{
    tJson rows = tJson::array();
    for (const auto& [key, stream] : streams)
    {
        tJson gaps = tJson::array();
        for (const tGap& gap : stream.gaps())
            gaps.push_back({{"from_ms", gap.fromMs}, {"to_ms", gap.toMs}, {"length_ms", gap.length()}});
        tJson row = {{"stream", key.name()},
                     {"address", key.address()},
                     {"records", stream.messages()},
                     {"bytes", stream.bytes()},
                     {"first_ms", stream.firstMs()},
                     {"last_ms", stream.lastMs()},
                     {"recordsPerSecond", stream.messagesPerSecond()},
                     {"bytesPerSecond", stream.bytesPerSecond()},
                     {"gaps", std::move(gaps)}};
        if (withDigest)
            row["digest"] = stream.digest().text();
        rows.push_back(std::move(row));
    }
    return rows;
}

tJson fileJson(const tFileInfo& file, bool withDigest)
{
    if (!file.error.empty())
        return {{"path", file.path}, {"error", file.error}};
    return {{"path", file.path},
            {"kind", kindName(file.kind)},
            {"readable", file.readable},
            {"finished", file.finished},
            {"size", file.size},
            {"records", file.records},
            {"bytes", file.bytes},
            {"damaged", file.damaged},
            {"first_ms", file.firstMs},
            {"last_ms", file.lastMs},
            {"streams", streamsOf(file.streams, withDigest)}};
}

tJson infoJson(const tOptions& options, const tScan& scan)
{
    const tTotals& totals = scan.totals();
    tJson files = tJson::array();
    for (const tFileInfo& file : scan.files())
        files.push_back(fileJson(file, options.digest));
    return {{"schema", "kestova/info/1"},
            {"path", options.path},
            {"files", std::move(files)},
            {"total",
             {{"files", scan.files().size()},
              {"size", totals.size},
              {"records", totals.records},
              {"bytes", totals.bytes},
              {"damaged", totals.damaged},
              {"skipped", totals.skipped},
              {"first_ms", totals.firstMs},
              {"last_ms", totals.lastMs},
              {"streams", streamsOf(totals.streams, options.digest)}}}};
}

std::string fileText(const tFileInfo& file)
{
    if (!file.error.empty())
        return fmt::format("{}\n  skipped: {}\n", file.path, file.error);
    std::string text = fmt::format("{}\n  {}, {}, {}, {} records", file.path, kindName(file.kind),
                                   file.finished ? "finished" : "unfinished", sizeText(file.size), file.records);
    if (file.damaged > 0)
        text += fmt::format(", {} damaged", file.damaged);
    if (!file.readable)
        text += "; none of them can be read";
    if (file.records > 0)
        text += fmt::format("\n  {} to {} ({})", localTimeText(file.firstMs), localTimeText(file.lastMs),
                            durationText(file.lastMs - file.firstMs));
    return text + '\n';
}

std::string streamsTextOf(const tHistories& streams, bool withDigest)
{
    std::string text = fmt::format("\n{:<18}{:<23}{:>10}{:>11}{:>11}{:>13}{}\n", "stream", "address", "records",
                                   "bytes", "records/s", "rate", withDigest ? "  digest" : "");
    for (const auto& [key, stream] : streams)
        text += fmt::format("{:<18}{:<23}{:>10}{:>11}{:>11.1f}{:>13}{}\n", key.name(), key.address(), stream.messages(),
                            sizeText(stream.bytes()), stream.messagesPerSecond(), rateText(stream.bytesPerSecond()),
                            withDigest ? "  " + stream.digest().text() : "");
    return text;
}

std::string gapsText(const tHistories& streams)
{
    constexpr std::size_t most = 10;
    std::vector<std::pair<tGap, std::string>> all;
    for (const auto& [key, stream] : streams)
    {
        for (const tGap& gap : stream.gaps())
            all.emplace_back(gap, key.name() + " " + key.address());
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const auto& a, const auto& b) { return a.first.length() > b.first.length(); });
    std::string text = all.empty() ? "\nno gaps\n" : "\ngaps, the longest first\n";
    for (std::size_t i = 0; i < std::min(most, all.size()); ++i)
        text += fmt::format("{}  from {}  {}\n", durationText(all[i].first.length()),
                            localTimeText(all[i].first.fromMs), all[i].second);
    return text;
}

std::string infoText(const tOptions& options, const tScan& scan)
{
    const tTotals& totals = scan.totals();
    std::string text;
    for (const tFileInfo& file : scan.files())
        text += fileText(file);
    if (!totals.streams.empty())
        text += streamsTextOf(totals.streams, options.digest) + gapsText(totals.streams);
    text += fmt::format("\ntotal: {} data files, {} records, {} of payload", scan.files().size() - totals.skipped,
                        totals.records, sizeText(totals.bytes));
    if (totals.damaged > 0)
        text += fmt::format(", {} damaged records", totals.damaged);
    if (totals.skipped > 0)
        text += fmt::format(", {} other files skipped", totals.skipped);
    return text + '\n';
}

int info(const tOptions& options, tConsole& console)
{
    tScan scan(options, console);
    const bool whole = scan.run();
    if (options.json)
        printJson(console, infoJson(options, scan));
    else
        console.print(infoText(options, scan));
    if (!whole)
        throw tFailure("info was ended before everything was looked through");
    return scan.totals().damaged > 0 || scan.totals().skipped > 0 ? eDamaged : eDone;
}
}  // namespace

void addInfo(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("info", "Show what is in a recording");
    command.footer("Shows files, time span, streams, rates, gaps and damage. Exit status 3 if something is damaged.\n"
                   "Example: kestova info recordings --gap 5");
    command.add_option("path", options->path, "Data file, or folder with data files")
        ->type_name("FILE|FOLDER")
        ->required();
    command.add_option("--suffix", options->suffix, "What names of data files in a folder end in")
        ->capture_default_str();
    command.add_option("--gap", options->gap, "Silences of a stream from this length on are gaps")
        ->type_name("SEC")
        ->check(checkedBy(parseDuration))
        ->capture_default_str();
    command.add_flag("--digest", options->digest, "A digest of each stream, as simulate, record and replay give it");
    command.add_flag("--json", options->json, "Results as one JSON object");
    command.callback([options, &chosen] { chosen = [options](tConsole& console) { return info(*options, console); }; });
}
}  // namespace tool
