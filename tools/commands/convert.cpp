#include "tools/commands/convert.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <utility>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/sheet.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
namespace
{
using tSteady = std::chrono::steady_clock;

class tConvert : private storage::iConversionObserver
{
public:
    tConvert(const tDirection& direction, const tRecordingOptions& options, tConsole& console)
        : m_direction(direction), m_options(options), m_console(console)
    {}

    int run()
    {
        const auto started = tSteady::now();
        recordings::tFoundFiles found = recordings::findAllRecordings(m_options.paths, m_options.suffix);
        m_paths = std::move(found.files);
        m_leftOut = std::move(found.leftOut);
        if (m_paths.empty())
            throw recordings::nothingLeft(m_leftOut);
        for (m_number = 1; m_number <= m_paths.size() && !m_stop.requested(); ++m_number)
            convert(m_paths[m_number - 1]);
        m_tookMs = static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(tSteady::now() - started).count());
        return report();
    }

private:
    struct tDone
    {
        std::string path, result;
        std::uint64_t before, after;
        storage::tLeftOut leftOut;

        bool isCut() const { return leftOut.records != 0 || leftOut.bytes != 0; }
    };

    void convert(const std::string& path)
    {
        storage::tDataFile file;
        const bool asked = std::ranges::find(m_options.paths, path) != m_options.paths.end();
        if (!asked && file.open(path) && file.isCompressed() != m_direction.fromCompressed)
        {
            ++m_already;
            return;
        }
        tDone done{path, "", recordings::sizeOnDisk(path), 0, {}};
        std::string error;
        m_stepStart = tSteady::now();
        if (m_direction.convert(path, m_options.suffix, this, &done.result, &done.leftOut, &error))
        {
            refreshSheetOf(done.result);
            done.after = recordings::sizeOnDisk(done.result);
            done.result = asGiven(path, done.result);
            m_done.push_back(done);
            return;
        }
        if (m_stop.requested())
            return;
        m_failed.push_back(reasonFor(path, error));
        m_console.note("kestova " + std::string(m_direction.name) + ": " + m_failed.back());
    }

    // Without it the sheet is as good as before, but for the checksums of the index.
    void refreshSheetOf(const std::string& path)
    {
        try
        {
            recordings::refreshSheet(path);
        }
        catch (const recordings::tFailure& failure)
        {
            m_console.note("kestova " + std::string(m_direction.name) + ": " + failure.what());
        }
    }

    // Returns the result, which has the real path of its folder, in the folder as it was given.
    static std::string asGiven(const std::string& path, const std::string& result)
    {
        const auto given = std::filesystem::path(path).parent_path() / std::filesystem::path(result).filename();
        std::error_code error;
        return std::filesystem::equivalent(given, result, error) ? given.string() : result;
    }

    // Returns "PATH: REASON", which has the real path of its folder, with the path as it was given.
    static std::string reasonFor(const std::string& path, const std::string& reason)
    {
        const std::size_t end = reason.find(": ", reason.find(std::filesystem::path(path).filename().string()));
        if (end == std::string::npos)
            return reason;
        std::error_code error;
        const bool isSame = std::filesystem::equivalent(path, reason.substr(0, end), error);
        return isSame ? path + reason.substr(end) : reason;
    }

    bool UpdateConversion(storage::tConversionStep step, std::uint64_t done, std::uint64_t total) override
    {
        if (step != m_step)
            m_stepStart = tSteady::now();
        m_step = step;
        if (m_console.progressDue())
            showProgress(done, total);
        return !m_stop.requested();
    }

    void showProgress(std::uint64_t done, std::uint64_t total)
    {
        const double seconds = std::chrono::duration<double>(tSteady::now() - m_stepStart).count();
        const char* const step = m_step == storage::eCounting  ? "counting"
                                 : m_step == storage::eWriting ? m_direction.doing
                                                               : "verifying";
        m_console.progress(
            fmt::format("{} of {}  {} {}  {}  {}", m_number, m_paths.size(), step, m_paths[m_number - 1],
                        percentText(total != 0 ? static_cast<double>(done) / static_cast<double>(total) : 0.0),
                        rateText(seconds > 0.0 ? static_cast<double>(done) / seconds : 0.0)));
    }

    int report()
    {
        if (m_options.json)
            printJson(m_console, json());
        else
            m_console.print(text());
        if (m_stop.requested())
            m_console.note("kestova " + std::string(m_direction.name) +
                           ": interrupted; the files that are not listed are as they were");
        if (m_stop.requested() || (m_done.empty() && !m_failed.empty()))
            return eFailed;
        const int skipped = reportLeftOut(m_console, m_direction.name, m_leftOut);
        return worseStatus(skipped, m_failed.empty() ? eDone : eDamaged);
    }

    tDone sum() const
    {
        tDone all{"", "", 0, 0, {}};
        for (const tDone& one : m_done)
        {
            all.before += one.before;
            all.after += one.after;
        }
        return all;
    }

    static double ratio(const tDone& one)
    {
        return one.before == 0 ? 0.0 : static_cast<double>(one.after) / static_cast<double>(one.before);
    }

    tJson json() const
    {
        tJson files = tJson::array(), leftOut = tJson::array();
        for (const tDone& one : m_done)
        {
            if (one.isCut())
                leftOut.push_back({{"path", one.path}, {"records", one.leftOut.records}, {"bytes", one.leftOut.bytes}});
            files.push_back(
                {{"path", one.path}, {"result", one.result}, {"before_bytes", one.before}, {"after_bytes", one.after}});
        }
        return {{"schema", fmt::format("kestova/{}/2", m_direction.name)},
                {"paths", m_options.paths},
                {"skipped", leftOutJson(m_leftOut)},
                {"files", files},
                {"left_out", leftOut},
                {"already", m_already},
                {"failed", m_failed},
                {"before_bytes", sum().before},
                {"after_bytes", sum().after},
                {"took_ms", m_tookMs},
                {"complete", !m_stop.requested() && m_failed.empty() && m_leftOut.empty()}};
    }

    std::string text() const
    {
        std::string out;
        for (const tDone& one : m_done)
        {
            out += fmt::format("{}  {} to {} ({})\n", one.result, sizeText(one.before), sizeText(one.after),
                               percentText(ratio(one)));
            if (one.isCut())
                out += fmt::format("  left out, cut by a full disk: {} records, {} bytes behind the last whole one\n",
                                   one.leftOut.records, one.leftOut.bytes);
        }
        out += fmt::format("{} files in {}, {} to {}", m_done.size(), durationText(m_tookMs), sizeText(sum().before),
                           sizeText(sum().after));
        return out + (m_already != 0 ? fmt::format("; {} had that form already\n", m_already) : "\n");
    }

    const tDirection& m_direction;
    const tRecordingOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    std::vector<std::string> m_paths;
    std::vector<recordings::tLeftOut> m_leftOut;
    std::size_t m_number = 0;  // of the present file, from 1
    storage::tConversionStep m_step = storage::eCounting;
    tSteady::time_point m_stepStart;
    std::vector<tDone> m_done;
    std::vector<std::string> m_failed;
    std::size_t m_already = 0;
    std::uint64_t m_tookMs = 0;
};
}  // namespace

void addConvert(CLI::App& app, tRun& chosen, const tDirection& direction)
{
    auto options = std::make_shared<tRecordingOptions>();
    CLI::App& command = *app.add_subcommand(direction.name, direction.what);
    command.footer(direction.footer);
    addPaths(command, options->paths);
    addSuffix(command, options->suffix);
    addJson(command, options->json);
    command.callback([options, &direction, &chosen] {
        chosen = [options, &direction](tConsole& console) { return tConvert(direction, *options, console).run(); };
    });
}
}  // namespace tool
