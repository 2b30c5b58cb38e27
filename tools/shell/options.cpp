#include "tools/shell/options.h"

#include <charconv>
#include <fmt/format.h>
#include <limits>
#include <stdexcept>

#include "KestovaRecordings/streamchoice.h"
#include "tools/shell/places.h"
#include "tools/shell/units.h"

namespace tool
{
namespace
{
// Returns a check that a text is a number of this type and range; `what` names such numbers.
template <typename tNumber>
CLI::Validator numberFrom(tNumber least, tNumber greatest, const char* what)
{
    const std::string range = greatest == std::numeric_limits<tNumber>::max()
                                  ? fmt::format("from {} on", least)
                                  : fmt::format("from {} to {}", least, greatest);
    return CLI::Validator(
        [=](const std::string& text) {
            tNumber value{};
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
            const bool isNumber = error == std::errc() && end == text.data() + text.size();
            return isNumber && value >= least && value <= greatest ? std::string()
                                                                   : fmt::format("'{}' is no {} {}", text, what, range);
        },
        "");
}
}  // namespace

void addPaths(CLI::App& command, std::vector<std::string>& paths)
{
    command.add_option("paths", paths, "Data files, recording folders or storage roots")
        ->type_name("PATH...")
        ->required();
}

void addSuffix(CLI::App& command, std::string& suffix)
{
    command.add_option("--suffix", suffix, "What names of data files in a folder end in")->capture_default_str();
}

CLI::Option* addStreams(CLI::App& command, std::vector<std::string>& texts)
{
    return command
        .add_option("--streams", texts, "Only these streams, separated by commas: " + recordings::allStreamNames())
        ->type_name("NAME,...")
        ->allow_extra_args(false)
        ->check(checkedBy([](const std::string& text) { recordings::parseStreams({text}); }));
}

CLI::Option* addRadar(CLI::App& command, session::tRadarChoice& radar)
{
    CLI::Option* file = command.add_option("--radars", radar.directory, "Directory file of the radars (JSON)");
    file->type_name("FILE");
    command.add_option("--radar", radar.serial, "Serial number of the radar in the directory")->type_name("SERIAL");
    command.add_option("--id", radar.id, "Number of the radar among several of that serial number")
        ->type_name("N")
        ->check(wholeNumber(0, 65535))
        ->capture_default_str();
    return file;
}

void addDuration(CLI::App& command, std::string& text)
{
    command.add_option("--duration", text, "End after this time; until Ctrl-C where it is not given")
        ->type_name("SEC")
        ->check(checkedBy([](const std::string& given) {
            if (parseDuration(given) == 0)
                throw std::invalid_argument("'" + given + "' is no duration to run for: write 1ms or more");
        }));
}

CLI::Validator wholeNumber(std::uint64_t least, std::uint64_t greatest)
{
    return numberFrom(least, greatest, "whole number");
}

CLI::Validator decimalNumber(double least, double greatest)
{
    return numberFrom(least, greatest, "number");
}

eVolume tVolumeOptions::chosen() const
{
    if (quiet)
        return eVolume::eQuiet;
    return verbose ? eVolume::eVerbose : eVolume::eNormal;
}

void addVolume(CLI::App& command, tVolumeOptions& volume)
{
    CLI::Option* const verbose =
        command.add_flag("--verbose", volume.verbose, "Show the lines of the libraries on standard error, too");
    command.add_flag("--quiet", volume.quiet, "No progress and no lines but results, warnings and errors")
        ->excludes(verbose);
}

void addJson(CLI::App& command, bool& json)
{
    command.add_flag("--json", json, "Results as one JSON object");
}

void addUtc(CLI::App& command)
{
    command.add_flag_callback(
        "--utc", [] { useUtc(true); }, "Print and read times as UTC in place of local time");
}
}  // namespace tool
