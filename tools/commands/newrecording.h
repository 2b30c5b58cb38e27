// What the commands that make a recording of recordings report.
#ifndef KESTOVA_TOOLS_COMMANDS_NEWRECORDING_H
#define KESTOVA_TOOLS_COMMANDS_NEWRECORDING_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/recordingoutput.h"
#include "tools/shell/console.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"

namespace tool
{
// Adds --to.
void addNewFolder(CLI::App& command, std::string& folder);

// Returns the ms of a duration with a sign, as --shift takes it. Throws std::invalid_argument with a sentence for the
// user.
std::int64_t parseShift(const std::string& text);

// Returns the line of progress.
std::string progressOf(double fraction, const std::string& folder);

// Calls make(goOn), which makes the recording as long as goOn(fraction) returns true: that shows the progress, and
// returns false once the user stops the command. Returns the result; throws tFailure if it was stopped.
template <typename tMake>
auto makeNewRecording(tConsole& console, const std::string& folder, const tMake& make)
{
    const tStopSignal stop;
    auto result = make([&](double fraction) {
        if (console.progressDue())
            console.progress(progressOf(fraction, folder));
        return !stop.requested();
    });
    if (!result.complete)
        throw recordings::tFailure("interrupted; " + folder + " was not made");
    return result;
}

// Returns "path", "records", "bytes", "first_ms", "last_ms" for each file.
tJson newFilesJson(const std::vector<recordings::tNewFile>& files);
// Returns a line for each file.
std::string newFilesText(const std::vector<recordings::tNewFile>& files);

// Reports what was left out. Returns the exit status.
int reportSource(tConsole& console, const char* command, const std::vector<recordings::tLeftOut>& leftOut,
                 std::uint64_t damaged);
}  // namespace tool

#endif
