#include "tools/commands/recordlines.h"

#include <fmt/format.h>

#include "UdpSocket/udpsocket.h"
#include "tools/shell/console.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace session;

namespace
{
std::string interfaceText(const tInterface& interface)
{
    const std::string address = net::transAddr(interface.ip);
    return interface.name.empty() ? address : fmt::format("{} ({})", interface.name, address);
}

// Returns "3 s", "12 min" or "2.5 h".
std::string aboutText(std::uint64_t ms)
{
    if (ms < 120'000)
        return fmt::format("{} s", ms / 1000);
    return ms < 7'200'000 ? fmt::format("{} min", ms / 60'000)
                          : fmt::format("{:.1f} h", static_cast<double>(ms) / 3'600'000.0);
}
}  // namespace

tRecordLines::tRecordLines(tConsole& console, const tRecordOptions& options)
    : m_console(console), m_root(options.root), m_reclaims(options.reclaim)
{}

void tRecordLines::onStart(const std::vector<tInterface>& interfaces, const std::string& file)
{
    for (const tInterface& one : interfaces)
        m_interfaces += (m_interfaces.empty() ? "" : ", ") + interfaceText(one);
    m_console.inform("receiving on " + m_interfaces);
    m_console.inform("recording to " + file);
}

void tRecordLines::onNextFile(const std::string& file)
{
    m_console.inform("recording to " + file);
}

void tRecordLines::onAddress(const tInterface& interface, std::size_t notJoined)
{
    if (interface.ip == 0)
        return warn(m_interfaces + " has no address any more: nothing is received until it has one");
    m_interfaces = interfaceText(interface);
    m_console.inform("receiving on " + m_interfaces + " now: every group was joined again");
    if (notJoined != 0)
        warn(fmt::format("{} groups could not be joined on {}; --verbose shows the reason", notJoined, m_interfaces));
}

void tRecordLines::onSilence(const tSilence& silence)
{
    const std::string time = aboutText(silence.ms);
    if (!silence.stream)
    {
        if (silence.begins)
            warn(fmt::format("no datagram on {} for {}: is the radar on, and is this its network (--local-ip)?",
                             m_interfaces, time));
        else
            m_console.inform(fmt::format("datagrams on {}, after {} of silence", m_interfaces, time));
        return;
    }
    const std::string stream = silence.stream->name() + " " + silence.stream->address();
    if (silence.begins)
        warn(fmt::format("no datagram of {} for {}", stream, time));
    else
        m_console.inform(fmt::format("datagrams of {}, after {} of silence", stream, time));
}

void tRecordLines::onDiskLeft(const tDiskLeft& left)
{
    if (m_reclaims)
        return;  // each deletion is reported instead
    std::string text = fmt::format("{} are left on the disk of {}", sizeText(left.bytes), m_root);
    if (left.seconds)
        text += fmt::format(", for {} at {}", aboutText(*left.seconds * 1000), rateText(left.bytesPerSecond));
    warn(text + "; recording goes on until it is full (--reclaim deletes the oldest recordings)");
}

void tRecordLines::onReclaimed(const tReclaimed& file)
{
    const std::string why = file.cause == "reclaim" ? "to make room" : "to keep within --" + file.cause;
    m_console.note(fmt::format("deleted {} ({}) {}", file.path, sizeText(file.bytes), why));
}

void tRecordLines::onSheetProblem(const std::string& problem)
{
    warn(problem + "; recording goes on");
}

void tRecordLines::warn(const std::string& text)
{
    m_console.note("kestova record: " + text);
}
}  // namespace tool
