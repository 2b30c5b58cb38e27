#include "tools/commands/newrecording.h"

#include <fmt/format.h>

#include "tools/shell/exitstatus.h"
#include "tools/shell/leftout.h"
#include "tools/shell/places.h"
#include "tools/shell/units.h"

namespace tool
{
void addNewFolder(CLI::App& command, std::string& folder)
{
    command.add_option("--to", folder, "Folder of the new recording; must not exist")->type_name("FOLDER")->required();
}

std::int64_t parseShift(const std::string& text)
{
    const bool isSigned = text.starts_with('-') || text.starts_with('+');
    const auto ms = static_cast<std::int64_t>(parseDuration(text.substr(isSigned ? 1 : 0)));
    return text.starts_with('-') ? -ms : ms;
}

std::string progressOf(double fraction, const std::string& folder)
{
    return fmt::format("{:>7}  {}", percentText(fraction), folder);
}

tJson newFilesJson(const std::vector<recordings::tNewFile>& files)
{
    tJson rows = tJson::array();
    for (const recordings::tNewFile& file : files)
        rows.push_back({{"path", file.path},
                        {"records", file.records},
                        {"bytes", file.bytes},
                        {"first_ms", file.firstMs},
                        {"last_ms", file.lastMs}});
    return rows;
}

std::string newFilesText(const std::vector<recordings::tNewFile>& files)
{
    std::string text;
    for (const recordings::tNewFile& file : files)
        text += fmt::format("{}\n  {} records, {}, {} to {}\n", file.path, file.records, sizeText(file.bytes),
                            timeText(file.firstMs), timeText(file.lastMs));
    return text;
}

int reportSource(tConsole& console, const char* command, const std::vector<recordings::tLeftOut>& leftOut,
                 std::uint64_t damaged)
{
    const int status = reportLeftOut(console, command, leftOut);
    if (damaged == 0)
        return status;
    console.note(fmt::format("kestova {}: {} damaged records were left out; see kestova info", command, damaged));
    return worseStatus(status, eDamaged);
}
}  // namespace tool
