#include "tools/shell/options.h"

#include "KestovaRecordings/streamchoice.h"

namespace tool
{
CLI::Option* addStreams(CLI::App& command, std::vector<std::string>& texts)
{
    return command.add_option("--streams", texts, "Only these streams, separated by commas: " + allStreamNames())
        ->type_name("NAME,...")
        ->check(checkedBy([](const std::string& text) { parseStreams({text}); }));
}

CLI::Option* addRadar(CLI::App& command, tRadarChoice& radar)
{
    CLI::Option* file = command.add_option("--radars", radar.directory, "Directory file of the radars (JSON)");
    file->type_name("FILE");
    command.add_option("--radar", radar.serial, "Serial number of the radar in the directory")->type_name("SERIAL");
    command.add_option("--id", radar.id, "Number of the radar among several of that serial number")
        ->type_name("N")
        ->capture_default_str();
    return file;
}

}  // namespace tool
