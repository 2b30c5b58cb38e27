#include "tools/commands/spokelayouts.h"

#include <CLI/CLI.hpp>
#include <set>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/companions.h"

namespace tool
{
namespace
{
tSpokeLayouts layoutsIn(const std::string& file, std::string* text = nullptr)
{
    tSpokeLayouts layouts;
    std::string error;
    if (!utils::readSpokeLayouts(file, layouts, error, text))
        throw recordings::tFailure(error);
    return layouts;
}
}  // namespace

void addLayout(CLI::App& command, std::string& file)
{
    command
        .add_option("--layout", file, "How spokes are laid out, a JSON file with \"spoke\" (as directory or sheet say)")
        ->type_name("FILE");
}

std::string spokeLayoutText(const std::string& file)
{
    std::string text;
    layoutsIn(file, &text);
    return text;
}

tSpokeLayouts spokeLayoutsFor(const std::vector<std::string>& files, const std::string& layout)
{
    tSpokeLayouts layouts = knownSpokeLayouts(files, layout);
    if (layouts.empty())
        throw recordings::tFailure("no sheet says how the spokes are laid out: give --layout FILE (docs/radars.md)");
    return layouts;
}

tSpokeLayouts knownSpokeLayouts(const std::vector<std::string>& files, const std::string& layout)
{
    if (!layout.empty())
        return layoutsIn(layout);
    tSpokeLayouts layouts;
    std::set<std::string> texts;
    for (const std::string& file : files)
    {
        const recordings::tFoundSheet found = recordings::readSheet(file);
        if (!found || found.sheet.spokeLayout.empty() || !texts.insert(found.sheet.spokeLayout).second)
            continue;
        tSpokeLayouts more;
        std::string error;
        if (!utils::parseSpokeLayouts(found.sheet.spokeLayout, more, error))
            throw recordings::tFailure(storage::sheetName(file) + ": " + error);
        layouts.insert(layouts.end(), more.begin(), more.end());
    }
    return layouts;
}
}  // namespace tool
