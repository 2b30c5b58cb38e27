#include "KestovaStorage/internal/radar/groupreceivers.h"

#include <algorithm>
#include <iterator>
#include <system_error>
#include <thread>
#include <utility>

#include "UdpSocket/consoleprint.h"

namespace Kestova
{
namespace
{
using tSources = std::vector<std::unique_ptr<net::iDatagramSource>>;

// Destroying a source waits for its callback. Each one gets a thread, so that many slow callbacks take no longer than
// the slowest.
void destroyAll(tSources sources)
{
    std::vector<std::thread> waiting;
    waiting.reserve(sources.size());
    for (std::unique_ptr<net::iDatagramSource>& source : sources)
    {
        try
        {
            waiting.emplace_back([ending = std::move(source)]() mutable { ending.reset(); });
        }
        catch (const std::system_error&)
        {
            // No thread could be started: the source has ended with the lambda that held it.
        }
    }
    for (std::thread& thread : waiting)
        thread.join();
}

tGroupRow rowOf(const tRadarGroup& group)
{
    tGroupRow row{group.msgInfo, {}};
    net::transAddr(group.address.ip).copy(row.text.data(), row.text.size() - 1);
    return row;
}
}  // namespace

void tGroupReceivers::open(const std::vector<tRadarGroup>& groups, std::uint32_t localIp, bool shared)
{
    close();
    tGroupTable table{groups, {}};
    std::transform(groups.begin(), groups.end(), std::back_inserter(table.rows), rowOf);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_table = std::move(table);
    }
    tSources sources = shared ? sharedSources(groups, localIp) : tSources();
    for (std::size_t i = 0; !shared && i < groups.size(); ++i)
        sources.push_back(sourceOf(groups[i], localIp));
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_sources = std::move(sources);
}

bool tGroupReceivers::close()
{
    tSources ending;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ending.swap(m_sources);
    }
    destroyAll(std::move(ending));  // their last callbacks use the table
    tGroupTable left;
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::swap(left, m_table);
    return !left.groups.empty();
}

bool tGroupReceivers::find(const NetAddress& address, tGroupRow& row) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::vector<tRadarGroup>& groups = m_table.groups;
    // Some twenty rows: a walk over them is faster than a tree.
    const auto group =
        std::find_if(groups.begin(), groups.end(), [&](const tRadarGroup& known) { return known.address == address; });
    if (group == groups.end())
        return false;
    row = m_table.rows[static_cast<std::size_t>(group - groups.begin())];
    return true;
}

std::vector<tGroupState> tGroupReceivers::states() const
{
    std::vector<tGroupState> states;
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (std::size_t i = 0; i < m_sources.size(); ++i)
    {
        tGroupState state{m_table.groups[i], false, {}};
        if (const net::iDatagramSource* source = m_sources[i].get())
        {
            state.joined = source->joined();
            state.counters = source->counters();
        }
        states.push_back(state);
    }
    return states;
}

tGroupReceivers::tSources tGroupReceivers::sharedSources(const std::vector<tRadarGroup>& groups,
                                                         std::uint32_t localIp) const
try
{
    // Holds what arrives while datagrams of all groups gather and are recorded.
    constexpr int cReceiveBuffer = 16 * 1024 * 1024;
    std::vector<net::tSourceRequest> requests;
    requests.reserve(groups.size());
    for (const tRadarGroup& group : groups)
        requests.push_back({m_listener, group.address});
    return m_transport.openSources(requests, localIp, cReceiveBuffer);
}
catch (const std::system_error& error)
{
    Kestova::console::printError("Radar data saver: no group can be received: %s\n", error.what());
    return tSources(groups.size());
}

std::unique_ptr<net::iDatagramSource> tGroupReceivers::sourceOf(const tRadarGroup& group, std::uint32_t localIp) const
try
{
    return m_transport.openSource(m_listener, group.address, localIp, group.recBuffSize);
}
catch (const std::system_error& error)  // no thread could be started: the other groups are still worth recording
{
    Kestova::console::printError("Radar data saver: group %s:%u cannot be received: %s\n",
                                 net::transAddr(group.address.ip).c_str(), unsigned{net::NtoHs(group.address.port)},
                                 error.what());
    return nullptr;
}
}  // namespace Kestova
