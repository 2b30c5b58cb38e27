// kestova prune: deletes the oldest recordings below storage roots.
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/prune.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/leftout.h"
#include "tools/shell/names.h"
#include "tools/shell/options.h"
#include "tools/shell/prunelimits.h"
#include "tools/shell/report.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions : tRecordingOptions
{
    tPruneTexts limits;
    bool dryRun = false;
};

class tPrune
{
public:
    tPrune(const tOptions& options, tConsole& console) : m_options(options), m_console(console) {}

    int run()
    {
        for (const std::string& root : m_options.paths)
            pruneOne(root);
        const int status = reportLeftOut(m_console, "prune", m_failed);
        if (m_options.json)
            printJson(m_console, json());
        else
            m_console.print(fmt::format("{} {} recordings, {}; {} with {} are left\n",
                                        m_options.dryRun ? "would delete" : "deleted", m_deleted.size(),
                                        sizeText(m_deletedBytes), m_recordings, sizeText(m_bytes)));
        return status;
    }

private:
    void pruneOne(const std::string& root)
    try
    {
        tPruneOptions options;
        options.dryRun = m_options.dryRun;
        options.suffix = m_options.suffix;
        const tPruneResult result =
            pruneRoot(root, m_options.limits.limits(), options, [this](const tPruned& one) { noteDeleted(one); });
        m_failed.insert(m_failed.end(), result.failed.begin(), result.failed.end());
        m_passedOver.insert(m_passedOver.end(), result.passedOver.begin(), result.passedOver.end());
        m_recordings += result.recordings;
        m_bytes += result.bytes;
        m_reached &= result.reached;
        m_roots.push_back({{"path", root},
                           {"recordings", result.recordings},
                           {"bytes", result.bytes},
                           {"free_bytes", result.freeBytes},
                           {"reached", result.reached}});
        explain(root, result);
    }
    catch (const tFailure& failure)
    {
        m_reached = false;
        m_failed.push_back(leftOut(root, failure.what(), true));
    }

    void noteDeleted(const tPruned& one)
    {
        m_deletedBytes += one.bytes;
        if (!m_options.json)
            m_console.print(prunedText(one, m_options.dryRun) + '\n');
        m_deleted.push_back({{"path", one.path},
                             {"first_ms", one.firstMs},
                             {"last_ms", one.lastMs},
                             {"bytes", one.bytes},
                             {"cause", causeName(one.cause)}});
    }

    void explain(const std::string& root, const tPruneResult& result)
    {
        for (const tLeftOut& one : result.passedOver)
            m_console.inform(fmt::format("kestova prune: {} stays: it {}", printable(one.path), one.reason));
        if (!result.reached)
            m_console.note(
                fmt::format("kestova prune: {}: not within the limits: nothing else may be deleted", printable(root)));
    }

    tJson json() const
    {
        return {{"schema", "kestova/prune/1"},      {"roots", m_roots},
                {"dry_run", m_options.dryRun},      {"deleted", m_deleted},
                {"deleted_bytes", m_deletedBytes},  {"passed_over", leftOutJson(m_passedOver)},
                {"skipped", leftOutJson(m_failed)}, {"reached", m_reached}};
    }

    const tOptions& m_options;
    tConsole& m_console;
    tJson m_roots = tJson::array(), m_deleted = tJson::array();
    std::vector<tLeftOut> m_failed, m_passedOver;
    std::uint64_t m_deletedBytes = 0, m_recordings = 0, m_bytes = 0;
    bool m_reached = true;
};
}  // namespace

void addPrune(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("prune", "Delete the oldest recordings");
    command.footer(
        "Deletes recordings, folders Data_NNNNNN_* in a storage root, the one that ended first before the "
        "others, until\n"
        "the limits hold. Never one that is kept, being recorded or being played. Exit status 3 if one could "
        "not be deleted.\n"
        "Example: kestova prune recordings --max-age 30d --min-free 50G --dry-run");
    command.add_option("roots", options->paths, "Storage roots, each by itself")->type_name("ROOT...")->required();
    addPruneLimits(command, options->limits);
    command.add_flag("--dry-run", options->dryRun, "Show what would be deleted");
    addSuffix(command, options->suffix);
    addJson(command, options->json);
    command.callback([options, &chosen] {
        if (!options->limits.limits().any())
            throw CLI::RequiredError("--max-age, --max-size or --min-free");
        chosen = [options](tConsole& console) { return tPrune(*options, console).run(); };
    });
}
}  // namespace tool
