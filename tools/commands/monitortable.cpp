#include "tools/commands/monitortable.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>

#include "KestovaStorage/radarmsgpackage.h"
#include "tools/shell/units.h"

namespace tool
{
using session::tMonitoredStream;

namespace
{
std::string secondsText(std::uint64_t ms)
{
    return ms < 600'000 ? fmt::format("{:.1f} s", static_cast<double>(ms) / 1000.0)
                        : fmt::format("{} min", ms / 60'000);
}

std::string jitterText(double ms)
{
    return ms < 100.0 ? fmt::format("{:.2f} ms", ms) : fmt::format("{:.0f} ms", ms);
}

using tCell = std::string (*)(const tMonitoredStream&);

// A column; those of a high `rank` are left out first. Texts stand to the left, numbers to the right.
struct tColumn
{
    const char* head;
    int width;
    bool isText;
    int rank;
    tCell cell;
};

using tStream = const tMonitoredStream&;
constexpr std::array<tColumn, 10> cColumns{{
    {"stream", 17, true, 0, [](tStream stream) { return stream.key.name(); }},
    {"address", 22, true, 5, [](tStream stream) { return stream.key.address(); }},
    {"per second", 11, false, 1, [](tStream stream) { return fmt::format("{:.1f}", stream.datagramsPerSecond); }},
    {"rate", 12, false, 4, [](tStream stream) { return rateText(stream.bytesPerSecond); }},
    {"last heard", 12, false, 0,
     [](tStream stream) { return stream.heard ? secondsText(stream.silentMs) + " ago" : std::string("never"); }},
    {"jitter p50", 12, false, 3,
     [](tStream stream) { return stream.jitter ? jitterText(stream.jitter->p50Ms) : std::string("-"); }},
    {"p99", 10, false, 3,
     [](tStream stream) { return stream.jitter ? jitterText(stream.jitter->p99Ms) : std::string("-"); }},
    {"longest silence", 17, false, 6, [](tStream stream) { return secondsText(stream.longestSilenceMs); }},
    {"dropped", 9, false, 2, [](tStream stream) { return std::to_string(stream.kernelDropped); }},
    {"datagrams", 13, false, 7, [](tStream stream) { return std::to_string(stream.datagrams); }},
}};

std::size_t widthUpTo(int rank)
{
    std::size_t width = 0;
    for (const tColumn& column : cColumns)
        width += column.rank <= rank ? static_cast<std::size_t>(column.width) : 0;
    return width;
}

int rankFor(std::size_t width)
{
    int rank = 7;
    while (rank > 0 && widthUpTo(rank) > width)
        --rank;
    return rank;
}

// Groups that share a name stand by their address where its column has no room.
std::string nameFor(int rank, const tMonitoredStream& stream)
{
    const bool hasAddress = rank >= cColumns[1].rank;
    return stream.key.kind == eOtherType && !hasAddress ? stream.key.address() : stream.key.name();
}

std::string line(int rank, const tMonitoredStream* stream, std::size_t width)
{
    std::string text;
    for (const tColumn& column : cColumns)
    {
        if (column.rank > rank)
            continue;
        std::string cell = stream != nullptr ? column.cell(*stream) : std::string(column.head);
        if (stream != nullptr && &column == &cColumns[0])
            cell = nameFor(rank, *stream);
        text += column.isText ? fmt::format("{:<{}}", cell, column.width) : fmt::format("{:>{}}", cell, column.width);
    }
    return text.substr(0, width);
}
}  // namespace

std::string monitorTable(const std::vector<tMonitoredStream>& streams, std::size_t width, std::size_t height)
{
    const int rank = rankFor(width);
    const std::size_t room = std::max<std::size_t>(height, 2) - 1;
    const bool allFit = streams.size() <= room;
    const std::size_t shown = allFit ? streams.size() : room - 1;
    std::string text = line(rank, nullptr, width);
    for (std::size_t i = 0; i < shown; ++i)
        text += '\n' + line(rank, &streams[i], width);
    if (!allFit)
        text += '\n' + fmt::format("and {} more", streams.size() - shown).substr(0, width);
    return text;
}
}  // namespace tool
