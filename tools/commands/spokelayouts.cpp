#include "tools/commands/spokelayouts.h"

#include <CLI/CLI.hpp>

#include "KestovaRecordings/failure.h"

namespace tool
{
void addLayout(CLI::App& command, std::string& file)
{
    command
        .add_option("--layout", file,
                    "How spokes are laid out, a JSON object with \"spoke\" (as the recording's sheet says)")
        ->type_name("FILE");
}

std::vector<utils::tSpokeLayout> spokeLayoutsFor(const std::vector<std::string>& files, const std::string& layout)
{
    std::vector<utils::tSpokeLayout> layouts;
    std::string error;
    if (layout.empty())
        throw recordings::tFailure(
            "how the spokes are laid out is not known: say it with --layout FILE (docs/radars.md)");
    if (!utils::readSpokeLayouts(layout, layouts, error))
        throw recordings::tFailure(error);
    return layouts;
}
}  // namespace tool
