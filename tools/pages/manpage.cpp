#include "tools/pages/manpage.h"

#include <cctype>
#include <fmt/format.h>
#include <sstream>
#include <vector>

namespace tool
{
namespace
{
// What the help says below the options: lines of text, then one or several examples.
struct tFooter
{
    std::string text;
    std::vector<std::string> examples;
};

// As man shows it: a minus that can be copied, and no line that begins a request.
std::string escaped(const std::string& text)
{
    std::string out;
    for (const char c : text)
    {
        if (c == '-' || c == '\\')
            out += '\\';
        out += c == '\\' ? 'e' : c;
    }
    return out.starts_with('.') || out.starts_with('\'') ? "\\&" + out : out;
}

tFooter footerOf(const CLI::App& command)
{
    tFooter footer;
    std::istringstream lines(command.get_footer());
    bool isExample = false;
    for (std::string line; std::getline(lines, line);)
    {
        isExample = isExample || line.starts_with("Example");
        if (!isExample)
            footer.text += escaped(line) + '\n';
        else if (const std::size_t begin = line.find("kestova "), pipe = line.find('|'); begin != std::string::npos)
            // A pipe into kestova begins with another program.
            footer.examples.push_back(line.substr(pipe < begin ? line.find_first_not_of(' ') : begin));
    }
    return footer;
}

// "\-\-id \fIN\fR"; the value in brackets if it may be left out.
std::string synopsisOf(const CLI::Option& option)
{
    std::string names;
    for (const std::string& name : option.get_snames())
        names += "\\fB\\-" + escaped(name) + "\\fR, ";
    for (const std::string& name : option.get_lnames())
        names += "\\fB\\-\\-" + escaped(name) + "\\fR, ";
    names.resize(names.size() - 2);
    if (option.get_items_expected_max() == 0)
        return names;
    const std::string value = "\\fI" + escaped(option.get_type_name()) + "\\fR";
    return names + ' ' + (option.get_items_expected_min() == 0 ? '[' + value + ']' : value);
}

std::string descriptionOf(const CLI::Option& option)
{
    std::string text = option.get_description();
    if (option.get_items_expected_max() != 0 && !option.get_default_str().empty())
        text += fmt::format(" (default: {})", option.get_default_str());
    return escaped(text) + ".\n";
}

std::string lowered(std::string text)
{
    text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}
}  // namespace

std::string manualPage(const CLI::App& command, const std::string& version)
{
    const std::string& name = command.get_name();
    std::string upper, arguments, options;
    for (const char c : name)
        upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    for (const CLI::Option* const option : command.get_options())
    {
        if (option->get_positional())
            arguments += fmt::format("\n.TP\n\\fI{}\\fR\n{}", escaped(option->get_type_name()), descriptionOf(*option));
        else
            options += fmt::format(".TP\n{}\n{}", synopsisOf(*option), descriptionOf(*option));
    }
    const tFooter footer = footerOf(command);
    std::string page =
        fmt::format(".TH KESTOVA-{} 1 \"\" \"kestova {}\" \"User Commands\"\n.SH NAME\nkestova\\-{} \\- {}\n", upper,
                    version, name, escaped(lowered(command.get_description())));
    page += fmt::format(".SH SYNOPSIS\n.B kestova {}\n.RI [ options ]", name);
    for (const CLI::Option* const option : command.get_options())
        if (option->get_positional())
            page += fmt::format("\n.I {}", escaped(option->get_type_name()));
    page += "\n.SH DESCRIPTION\n" + escaped(command.get_description()) + ".\n" + footer.text;
    page += ".SH OPTIONS" + (arguments.empty() ? "\n" : arguments) + options;
    page += ".SH EXIT STATUS\n0 done, 1 failed, 2 wrong usage, 3 done but something was lost, damaged or different.\n";
    page += ".SH EXAMPLES\n.nf\n";
    for (const std::string& example : footer.examples)
        page += escaped(example) + '\n';
    return page + ".fi\n.SH SEE ALSO\n.BR kestova (1)\n";
}
}  // namespace tool
