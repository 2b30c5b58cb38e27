// Writes the manual pages and the completion tables of kestova into a folder: kestova-COMMAND.1 for each command, and
// tables.bash.
#include <cstdio>
#include <exception>
#include <fstream>

#include "tools/commands/commandline.h"
#include "tools/pages/completion.h"
#include "tools/pages/manpage.h"

namespace
{
bool write(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file)
        std::fprintf(stderr, "cannot write %s\n", path.c_str());
    return static_cast<bool>(file);
}

// Returns whether all of them could be written.
bool writePages(const std::string& folder)
{
    CLI::App app;
    tool::tRun run;
    tool::tVolumeOptions volume;
    tool::addCommands(app, run, volume);
    bool written = write(folder + "/tables.bash", tool::completionTables(app));
    for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; }))
        written =
            write(folder + "/kestova-" + command->get_name() + ".1", tool::manualPage(*command, KESTOVA_VERSION)) &&
            written;
    return written;
}
}  // namespace

int main(int argc, char** argv)
try
{
    if (argc == 2)
        return writePages(argv[1]) ? 0 : 1;
    std::fprintf(stderr, "usage: kestova_pages FOLDER\n");
    return 2;
}
catch (const std::exception& error)
{
    std::fprintf(stderr, "kestova_pages: %s\n", error.what());
    return 1;
}
