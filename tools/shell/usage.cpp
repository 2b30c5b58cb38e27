#include "tools/shell/usage.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <numeric>
#include <utility>

#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"

namespace tool
{
namespace
{
using tNames = std::vector<std::string>;

// How many letters to insert, remove, replace or swap with their neighbour to make `b` of `a`.
std::size_t distance(const std::string& a, const std::string& b)
{
    std::vector<std::size_t> before, last, row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i)
    {
        before = std::exchange(last, row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j)
        {
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1] ? 1 : 0)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
    }
    return row[b.size()];
}

tNames commandsOf(const CLI::App& app)
{
    tNames names;
    for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; }))
        names.push_back(command->get_name());
    return names;
}

tNames optionsOf(const CLI::App& app)
{
    tNames names;
    for (const CLI::Option* const option : app.get_options())
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    return names;
}

std::string meant(const std::string& closest)
{
    return closest.empty() ? "" : fmt::format(": did you mean {}?", closest);
}

std::string unknownCommand(const CLI::App& app, const std::string& name)
{
    return fmt::format("'{}' is no command{}", name, meant(closestTo(name, commandsOf(app))));
}

// Returns the first argument that looks like an option and is none, without its value; empty if there is none.
std::string unknownOption(const CLI::App& app)
{
    const tNames unknown = app.remaining(true);
    const auto found = std::find_if(unknown.begin(), unknown.end(),
                                    [](const std::string& text) { return text.size() > 1 && text[0] == '-'; });
    return found == unknown.end() ? "" : found->substr(0, found->find('='));
}

// Prints the help of kestova or, with its name, of a command.
int help(const CLI::App& app, const std::string& name, tConsole& console)
{
    const auto named = app.get_subcommands([&](const CLI::App* one) { return one->get_name() == name; });
    if (!name.empty() && named.empty())
    {
        console.note(fmt::format("kestova: {} (see kestova --help)", unknownCommand(app, name)));
        return eUsage;
    }
    // App::help() would explain the chosen command, which is help.
    console.print(name.empty() ? app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal)
                               : named[0]->help(app.get_name()));
    return eDone;
}
}  // namespace

std::string closestTo(const std::string& text, const tNames& known)
{
    std::string closest;
    const std::size_t letters = text.size() - std::min(text.find_first_not_of('-'), text.size());
    std::size_t least = letters / 3 + 1;  // as far as this, or farther, is another word
    for (const std::string& name : known)
    {
        const bool begins = letters >= 3 && name.starts_with(text);
        const std::size_t far = begins ? 0 : distance(text, name);
        if (far < least)
        {
            least = far;
            closest = name;
        }
    }
    return closest;
}

bool isUnknownCommand(const CLI::App& app, const tNames& arguments)
{
    return app.get_subcommands().empty() && !arguments.empty() && !arguments[0].starts_with('-');
}

std::string usageText(CLI::App& app, const CLI::ParseError& error, const tNames& arguments)
{
    if (isUnknownCommand(app, arguments))
        return fmt::format("kestova: {} (see kestova --help)", unknownCommand(app, arguments[0]));
    const auto chosen = app.get_subcommands();
    const CLI::App& command = chosen.empty() ? app : *chosen[0];
    const std::string see = chosen.empty() ? "kestova --help" : "kestova " + command.get_name() + " --help";
    // A misspelt option is reported first: what it would have given is missed, too.
    const std::string option = unknownOption(app);
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    if (!option.empty() && (code == CLI::ExitCodes::RequiredError || code == CLI::ExitCodes::ExtrasError))
        return fmt::format("kestova: {} is no option{} (see {})", option, meant(closestTo(option, optionsOf(command))),
                           see);
    return fmt::format("kestova: {} (see {})", error.what(), see);
}

void addHelp(CLI::App& app, tRun& chosen)
{
    auto name = std::make_shared<std::string>();
    CLI::App& command = *app.add_subcommand("help", "Explain kestova, or a command");
    command.footer("Example: kestova help record");
    command.add_option("command", *name, "A command of kestova")->type_name("COMMAND");
    command.callback(
        [name, &app, &chosen] { chosen = [name, &app](tConsole& console) { return help(app, *name, console); }; });
}
}  // namespace tool
