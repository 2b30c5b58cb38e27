// What comes to the server from a page, of any content, is taken or refused: a message of a WebSocket, and the target
// of a request, whose segments then lead nowhere else.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "server/answers.h"
#include "server/target.h"
#include "server/viewermessage.h"
#include "tests/fuzz/fuzz.h"

namespace
{
void checkTarget(std::string_view text)
{
    const auto target = server::parseTarget(text);
    if (!target)
        return;
    require(target->path.starts_with('/') && target->path.find('?') == std::string::npos);
    for (const std::string& segment : target->segments)
    {
        require(!segment.empty() && segment != "." && segment != "..");
        for (const char c : segment)
            require(c != '/' && c != '\\' && static_cast<unsigned char>(c) >= 0x20);
    }
}

void checkMessage(std::string_view text)
try
{
    const server::tViewerMessage message = server::parseViewerMessage(text);
    require(message.picture < 2);
    require(message.speed == 0 || (message.speed >= 0.1 && message.speed <= 10));
    require(message.count != 0);
    require(!message.loop || message.loop->fromMs < message.loop->toMs);
}
catch (const server::tRefusal&)
{}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    checkTarget(text);
    checkMessage(text);
    return 0;
}
