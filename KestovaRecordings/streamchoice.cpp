#include "KestovaRecordings/streamchoice.h"

#include <fmt/format.h>
#include <stdexcept>
#include <string_view>

#include "KestovaUtils/streamnames.h"

namespace recordings
{
namespace
{
void chooseByName(tStreamChoice& choice, std::string_view name)
{
    const int kind = utils::streamKind(std::string(name));
    if (kind < 0)
        throw std::invalid_argument(fmt::format("'{}' is no stream; the streams are {}", name, allStreamNames()));
    choice.choose(static_cast<tReadWriteType>(kind));
}
}  // namespace

std::string streamTitle(tReadWriteType kind)
{
    const char* const name = utils::streamName(kind);
    return name != nullptr ? name : fmt::format("kind {}", kind);
}

std::string messageTitle(tMsgType type)
{
    const char* const name = utils::messageName(type);
    return name != nullptr ? name : fmt::format("type {}", type);
}

std::string allStreamNames()
{
    std::string names;
    for (unsigned int kind = 0; kind < utils::cStreamKindLimit; ++kind)
        if (const char* const name = utils::streamName(kind))
            names += (names.empty() ? "" : ", ") + std::string(name);
    return names;
}

tStreamChoice parseStreams(const std::vector<std::string>& texts)
{
    tStreamChoice choice;
    for (std::string_view text : texts)
    {
        while (!text.empty())
        {
            const std::size_t comma = text.find(',');
            chooseByName(choice, text.substr(0, comma));
            text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
        }
    }
    return choice;
}
}  // namespace recordings
