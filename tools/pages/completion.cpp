#include "tools/pages/completion.h"

#include <fmt/format.h>

#include "KestovaUtils/streamnames.h"

namespace tool
{
namespace
{
std::string wordsOf(const CLI::App& app)
{
    std::string words;
    for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; }))
        words += command->get_name() + ' ';
    for (const CLI::Option* const option : app.get_options())
        for (const std::string& name : option->get_lnames())
            words += "--" + name + ' ';
    return words;
}

std::string valuesOf(const CLI::App& command)
{
    std::string rows;
    for (const CLI::Option* const option : command.get_options())
    {
        const std::string name = option->get_positional() ? "" : "--" + option->get_lnames().front();
        if (option->get_items_expected_min() > 0)
            rows += fmt::format("    '{} {}') echo '{}' ;;\n", command.get_name(), name, option->get_type_name());
    }
    return rows;
}

std::string streamNames()
{
    std::string names;
    for (unsigned kind = 0; kind < utils::cStreamKindLimit; ++kind)
        if (const char* const name = utils::streamName(kind))
            names += std::string(name) + ' ';
    return names;
}
}  // namespace

std::string completionTables(CLI::App& app)
{
    std::string words = fmt::format("    '') echo '{}' ;;\n", wordsOf(app)), values;
    for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; }))
    {
        words += fmt::format("    {}) echo '{}' ;;\n", command->get_name(), wordsOf(*command));
        values += valuesOf(*command);
    }
    return fmt::format("_kestova_words()\n{{\n    case $1 in\n{}    esac\n}}\n\n"
                       "_kestova_value()\n{{\n    case \"$1 $2\" in\n{}    esac\n}}\n\n"
                       "_kestova_streams='{}'\n",
                       words, values, streamNames());
}
}  // namespace tool
