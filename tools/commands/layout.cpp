// kestova layout: how the spokes of a recording may be laid out.
#include <fmt/format.h>
#include <memory>
#include <optional>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/layoutguess.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/recordcursor.h"
#include "KestovaRecordings/streamchoice.h"
#include "KestovaRecordings/streamcounts.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"

namespace tool
{
using namespace recordings;

namespace
{
constexpr std::uint64_t cRecordsForChoice = 20'000;

struct tOptions : tRecordingOptions
{
    std::vector<std::string> streams;
    bool guess = false;
};

// Returns the stream with the most bytes, images before others.
std::optional<tStreamKey> spokeStream(const std::vector<std::string>& files, const tOptions& options)
{
    const tStreamChoice choice = parseStreams(options.streams);
    std::map<tStreamKey, std::uint64_t> bytes;
    tRecordCursor cursor(files, options.suffix);
    tRecordingRecord record{};
    for (std::uint64_t i = 0; i < cRecordsForChoice && cursor.next(record); ++i)
        if (const auto package = viewPackage(record.bytes); package && choice.includes(package->info.rwType))
            bytes[tStreamKey::of(package->info.rwType, package->ip, package->port)] += package->payload.size();
    std::optional<tStreamKey> best;
    std::pair<bool, std::uint64_t> most{};
    for (const auto& [key, count] : bytes)
        if (const std::pair worth(key.kind == eImageStream || key.kind == eOriginalImage, count); worth > most)
        {
            most = worth;
            best = key;
        }
    return best;
}

int guess(const tOptions& options, tConsole& console)
{
    const tFoundFiles found = findAllRecordings(options.paths, options.suffix);
    if (found.files.empty())
        throw nothingLeft(found.leftOut);
    const std::optional<tStreamKey> stream = spokeStream(found.files, options);
    if (!stream)
        throw tFailure("there is no stream that may hold spokes");
    tLayoutGuesser guesser;
    tRecordCursor cursor(found.files, options.suffix);
    tRecordingRecord record{};
    while (cursor.next(record))
    {
        const auto package = viewPackage(record.bytes);
        if (package && tStreamKey::of(package->info.rwType, package->ip, package->port) == *stream &&
            !guesser.add(package->payload, record.timeMs))
            break;
    }
    std::string reason;
    const auto layout = guesser.guess(reason);
    if (!layout)
        throw tFailure(fmt::format("{} {}: {}", stream->name(), stream->address(), reason));
    tJson why = tJson::object();
    for (const auto& [field, sentence] : layout->why)
        why[field] = sentence;
    printJson(console, {{"schema", "kestova/layout/1"},
                        {"stream", stream->name()},
                        {"address", stream->address()},
                        {"spoke", tJson::parse(layout->spoke)},
                        {"why", std::move(why)},
                        {"unsure", layout->unsure}});
    return reportLeftOut(console, "layout", found.leftOut);
}
}  // namespace

void addLayoutCommand(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("layout", "Guess how the spokes of a recording are laid out");
    command.footer("Prints one JSON object: \"spoke\", as --layout and the key of directory files take it, \"why\" "
                   "with a sentence\n"
                   "for each field, and \"unsure\" with the fields that the data does not decide: look at them, and "
                   "add the range\n"
                   "and what a bearing of 0 is. A turn of the antenna and more is wanted.\n"
                   "Example: kestova layout recordings --guess > layout.json");
    addPaths(command, options->paths);
    addSuffix(command, options->suffix);
    addStreams(command, options->streams);
    command.add_flag("--guess", options->guess, "Propose a layout")->required();
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return guess(*options, console); }; });
}
}  // namespace tool
