// kestova note: a line of text at a time in a recording.
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <stdexcept>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/noteplace.h"
#include "KestovaRecordings/sheet.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/names.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/report.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions
{
    std::string path, text, at;
    std::string suffix = ".data";
    bool json = false;
};

void checkText(const std::string& text)
{
    constexpr std::size_t cMost = 4096;
    if (text.empty() || text.size() > cMost || !isUtf8(text))
        throw std::invalid_argument(fmt::format("a note is a text in UTF-8 of 1 to {} bytes", cMost));
}

int note(const tOptions& options, tConsole& console)
{
    const auto at = options.at.empty() ? std::nullopt : std::optional(parseMoment(options.at));
    tNotePlace place = findNotePlace(options.path, at, options.suffix);
    // A recorder may compress the file meanwhile.
    place.file = presentForm(place.file, {}, options.suffix).value_or(place.file);
    recordings::addNote(place.file, {place.timeMs, options.text});
    console.inform(fmt::format("noted at {} in {}", timeText(place.timeMs), printable(place.file)));
    if (options.json)
        printJson(console, {{"schema", "kestova/note/1"},
                            {"path", options.path},
                            {"file", place.file},
                            {"time_ms", place.timeMs},
                            {"text", options.text}});
    return eDone;
}
}  // namespace

void addNote(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("note", "Write a note on a recording");
    command.footer(
        "A note stands at a time: now on a recording under way, otherwise at its beginning, or --at a place in "
        "it.\n"
        "info, ls and replay show it.\n"
        "Examples: kestova note recordings \"lost target 7\"\n"
        "          kestova note recordings/Data_000003_2024.05.17 \"squall\" --at 00:12:30");
    command
        .add_option("path", options->path,
                    "A recording folder, a data file, or a storage root: its recording under way")
        ->type_name("PATH")
        ->required();
    command.add_option("text", options->text, "The note")->type_name("TEXT")->required()->check(checkedBy(checkText));
    command.add_option("--at", options->at, "Where in the recording")
        ->type_name("PLACE")
        ->check(checkedBy(parseMoment));
    addSuffix(command, options->suffix);
    addJson(command, options->json);
    command.callback([options, &chosen] { chosen = [options](tConsole& console) { return note(*options, console); }; });
}
}  // namespace tool
