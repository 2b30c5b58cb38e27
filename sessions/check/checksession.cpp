#include "sessions/check/checksession.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <thread>

#include "KestovaRecordings/failure.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/check/machinechecks.h"
#include "sessions/monitor/listening.h"

namespace session
{
using namespace recordings;

namespace
{
using tSteady = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::uint64_t elapsedMs(tSteady::time_point since)
{
    return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(tSteady::now() - since).count());
}
}  // namespace

tCheck checkStream(const tMonitoredStream& stream, std::uint64_t listenedMs)
{
    const std::string name = stream.key.name() + ' ' + stream.key.address();
    const double seconds = static_cast<double>(listenedMs) / 1000.0;
    tCheck check;
    if (!stream.heard)
        check = warning("heard", fmt::format("no datagram of {} in {:.1f} s: is the radar on?", name, seconds),
                        fmt::format("sudo tcpdump -ni any udp and dst port {}", stream.key.port));
    else if (stream.kernelDropped != 0)
        check = warning("heard",
                        fmt::format("{} datagrams of {} in {:.1f} s, and the kernel dropped {}", stream.datagrams, name,
                                    seconds, stream.kernelDropped),
                        "sudo sysctl -w net.core.rmem_max=16777216");
    else
        check = ok("heard", fmt::format("{} datagrams of {} in {:.1f} s", stream.datagrams, name, seconds));
    check.stream = stream.key;
    return check;
}

tCheckSession::tCheckSession(const tCheckOptions& options) : m_options(options), m_groups(wantedStreams(options.record))
{}

tChecks tCheckSession::run(const std::function<bool(std::uint64_t elapsedMs)>& waiting)
{
    m_checks.clear();
    m_links = links();
    checkNetwork();
    if (worst(m_checks) == eCheckResult::eFail)
        skipReception();
    else
        checkReception(waiting);
    checkDisk();
    m_checks.push_back(checkClock(clockState()));
    return m_checks;
}

void tCheckSession::checkReception(const std::function<bool(std::uint64_t elapsedMs)>& waiting)
{
    tMonitorSession session(m_groups, m_localIp);
    const std::vector<NetAddress> notJoined = session.notJoined();
    std::vector<NetAddress> others = notJoined;
    std::erase_if(others, [](const NetAddress& group) { return holderOf(group).inode != 0; });
    m_checks.push_back(checkPort(notJoined));
    m_checks.push_back(checkJoin(others, m_groups.size(), link() != nullptr ? link()->name : ""));
    m_checks.push_back(checkReceiveBuffer(m_groups.front().address, m_localIp));
    listen(session, waiting);
    checkHeard();
}

// Without an interface, what depends on it is not tried: a recording would not start.
void tCheckSession::skipReception()
{
    const auto failed = std::find_if(m_checks.begin(), m_checks.end(),
                                     [](const tCheck& check) { return check.result == eCheckResult::eFail; });
    const std::string command = failed->command;
    const std::string message = "not tried: there is no interface to receive on";
    for (const char* const name : {"port", "join", "receive_buffer", "reverse_path"})
        m_checks.push_back(warning(name, message, command));
    for (const tStreamGroup& group : m_groups)
    {
        if (group.isShared)
            continue;
        m_checks.push_back(warning("heard", message, command));
        m_checks.back().stream = group.key();
    }
}

void tCheckSession::checkNetwork()
{
    const tRecordOptions& record = m_options.record;
    const bool kernelChooses = record.localIp.empty() && !record.groups.empty();
    const tCheck route = checkRoute(m_links, addressesOf(m_groups), kernelChooses);
    try
    {
        m_localIp = receivingAddress(record);
    }
    catch (const tFailure&)
    {
        m_localIp = 0;  // checkInterface() finds the reason
    }
    m_receiving = kernelChooses ? net::routeAddress(m_groups.front().address) : m_localIp;
    if (kernelChooses && m_receiving == 0)
        m_checks.push_back(warning("interface", "not known: the kernel chooses it by its routes", route.command));
    else
        m_checks.push_back(checkInterface(m_links, record.localIp, m_receiving));
    m_checks.push_back(route);
}

void tCheckSession::listen(tMonitorSession& session, const std::function<bool(std::uint64_t elapsedMs)>& waiting)
{
    const auto started = tSteady::now();
    for (m_listenedMs = 0; m_listenedMs < m_options.listenMs && waiting(m_listenedMs);
         m_listenedMs = elapsedMs(started))
        std::this_thread::sleep_for(milliseconds(std::min<std::uint64_t>(100, m_options.listenMs - m_listenedMs)));
    m_heard = session.update();
}

void tCheckSession::checkHeard()
{
    if (const tLink* const known = link())
        m_checks.push_back(checkReversePath(*known, reversePathOf(known->name), hasDefaultRoute(), isSilent()));
    for (const tMonitoredStream& stream : m_heard)
    {
        if (!stream.isShared)
            m_checks.push_back(checkStream(stream, m_listenedMs));
    }
}

void tCheckSession::checkDisk()
{
    const std::string& root = m_options.record.root;
    if (root.empty())
        return;
    const tDiskRoom room = diskRoom(root);
    m_checks.push_back(checkDiskRoom(root, room, bytesPerSecond()));
    if (room.error == 0)
        m_checks.push_back(checkDiskSpeed(root, writingSpeed(room), bytesPerSecond()));
}

const tLink* tCheckSession::link() const
{
    const auto known = std::find_if(m_links.begin(), m_links.end(),
                                    [this](const tLink& one) { return one.ip != 0 && one.ip == m_receiving; });
    return known != m_links.end() ? &*known : nullptr;
}

bool tCheckSession::isSilent() const
{
    return std::any_of(m_heard.begin(), m_heard.end(),
                       [](const tMonitoredStream& stream) { return !stream.heard && !stream.isShared; });
}

double tCheckSession::bytesPerSecond() const
{
    tStreamCount sum;
    for (const tMonitoredStream& stream : m_heard)
    {
        sum.messages += stream.datagrams;
        sum.bytes += stream.bytes;
    }
    return m_listenedMs == 0 ? 0.0 : static_cast<double>(bytesInFile(sum)) * 1000.0 / static_cast<double>(m_listenedMs);
}
}  // namespace session
