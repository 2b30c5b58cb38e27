#include "tools/commands/commandline.h"

#include "tools/commands/commands.h"
#include "tools/shell/options.h"
#include "tools/shell/usage.h"

namespace tool
{
void addCommands(CLI::App& app, tRun& chosen, tVolumeOptions& volume)
{
    app.name("kestova");
    app.description("Records a marine radar's UDP multicast traffic and plays it back.");
    app.set_version_flag("--version", "kestova " KESTOVA_VERSION);
    app.require_subcommand(1);
    app.footer("Exit status: 0 done, 1 failed, 2 wrong usage, 3 done but something was lost, damaged or different.\n"
               "Example: kestova record --radars radars.json --radar A1:2 --id 1 --root recordings");
    for (tAddCommand* const add : cCommands)
        add(app, chosen);
    for (CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; }))
    {
        addVolume(*command, volume);
        addUtc(*command);
    }
    addHelp(app, chosen);
}
}  // namespace tool
