#include "server/viewermessage.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "server/answers.h"

namespace server
{
namespace
{
constexpr const char* cTypes[] = {"open", "close", "play", "pause", "seek", "live", "speed", "step", "loop"};
constexpr const char* cUnits[] = {"spoke", "turn", "record", "note", "gap"};
constexpr std::uint64_t cLatestMs = std::uint64_t(1) << 48;
constexpr int cMostSteps = 10'000;

// Returns the place of the key's text in a list of names.
template <std::size_t cCount>
int indexIn(const tJson& message, const char* key, const char* const (&names)[cCount])
{
    const std::string text = textIn(message, key);
    const auto found = std::find(std::begin(names), std::end(names), text);
    if (found == std::end(names))
        throw tRefusal(400, "bad_value", std::string(key) + " is none that is known");
    return static_cast<int>(found - std::begin(names));
}

std::uint64_t timeIn(const tJson& message, const char* key)
{
    const std::uint64_t ms = numberIn(message, key);
    if (ms > cLatestMs)
        throw tRefusal(400, "bad_value", std::string(key) + " is no time");
    return ms;
}

double speedIn(const tJson& message)
{
    const auto value = message.find("value");
    if (value != message.end() && value->is_string() && *value == "max")
        return 0;
    const double speed = value != message.end() && value->is_number() ? value->get<double>() : 0;
    if (!(speed >= 0.1 && speed <= 10))
        throw tRefusal(400, "bad_value", "value is no speed from 0.1 to 10, and not \"max\"");
    return speed;
}

int countIn(const tJson& message)
{
    const auto value = message.find("count");
    const double count = value != message.end() && value->is_number() ? value->get<double>() : 0;
    if (!(count >= -cMostSteps && count <= cMostSteps) || static_cast<int>(count) == 0)
        throw tRefusal(400, "bad_value", "count is no number of steps");
    return static_cast<int>(count);
}

void readOpen(const tJson& message, tViewerMessage& result)
{
    result.id = textIn(message, "id");
    if (result.id == "live")
        result.id.clear();
    if (result.id.empty() || message.contains("radar"))
        result.radar = message.contains("radar") && message["radar"].is_null() ? "" : textIn(message, "radar");
    if (optionalNumberIn(message, "at_ms"))
        result.atMs = timeIn(message, "at_ms");
}

void readLoop(const tJson& message, tViewerMessage& result)
{
    if (!message.contains("from_ms") && !message.contains("to_ms"))
        return;
    result.loop = {timeIn(message, "from_ms"), timeIn(message, "to_ms")};
    if (result.loop->toMs <= result.loop->fromMs)
        throw tRefusal(400, "bad_value", "to_ms is not behind from_ms");
}
}  // namespace

tViewerMessage parseViewerMessage(std::string_view text)
{
    const tJson message = jsonIn(text);
    tViewerMessage result;
    result.type = static_cast<tViewerMessage::eType>(indexIn(message, "type", cTypes));
    if (message.contains("picture"))
    {
        const std::string picture = textIn(message, "picture");
        if (picture != "a" && picture != "b")
            throw tRefusal(400, "bad_value", "picture is neither \"a\" nor \"b\"");
        result.picture = picture == "a" ? 0 : 1;
    }
    if (result.type == tViewerMessage::eOpen)
        readOpen(message, result);
    if (result.type == tViewerMessage::eSeek)
        result.atMs = timeIn(message, "time_ms");
    if (result.type == tViewerMessage::eSpeed)
        result.speed = speedIn(message);
    if (result.type == tViewerMessage::eStep)
    {
        result.unit = static_cast<tViewerMessage::eUnit>(indexIn(message, "unit", cUnits));
        result.count = countIn(message);
    }
    if (result.type == tViewerMessage::eLoop)
        readLoop(message, result);
    return result;
}
}  // namespace server
