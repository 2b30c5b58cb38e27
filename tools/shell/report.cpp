#include "tools/shell/report.h"

#include <fmt/format.h>

#include "tools/shell/console.h"

namespace tool
{
using namespace recordings;

tJson streamsJson(const tStreamCounts& counts, std::string_view what)
{
    tJson rows = tJson::array();
    for (const auto& [key, count] : counts)
    {
        rows.push_back({{"stream", key.name()},
                        {"address", key.address()},
                        {std::string(what), count.messages},
                        {"bytes", count.bytes},
                        {"digest", count.digest.text()}});
    }
    return rows;
}

std::string streamsText(const tStreamCounts& counts, std::string_view what)
{
    std::string text = fmt::format("{:<18}{:<23}{:>12}{:>16}  {}\n", "stream", "address", what, "bytes", "digest");
    for (const auto& [key, count] : counts)
        text += fmt::format("{:<18}{:<23}{:>12}{:>16}  {}\n", key.name(), key.address(), count.messages, count.bytes,
                            count.digest.text());
    const tStreamCount sum = total(counts);
    return text + fmt::format("{:<41}{:>12}{:>16}\n", "total", sum.messages, sum.bytes);
}

void printJson(tConsole& console, const tJson& json)
{
    console.print(json.dump(-1, ' ', false, tJson::error_handler_t::replace) + '\n');
}
}  // namespace tool
