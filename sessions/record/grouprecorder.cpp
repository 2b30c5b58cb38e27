#include "sessions/record/grouprecorder.h"

#include <algorithm>
#include <chrono>

#include "KestovaRecordings/failure.h"
#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/localaddress.h"
#include "sessions/record/recordingchecks.h"

namespace session
{
using namespace recordings;

namespace
{
// Holds what arrives while datagrams gather, and longer stalls of this machine; used only as far as it fills.
constexpr int cReceiveBuffer = 16 * 1024 * 1024;
constexpr tUdpMsgInfo cInfo = {0, 0, eReadType, eOtherType, 0};
}  // namespace

tGroupRecorder::tGroupRecorder(const std::vector<NetAddress>& groups, const std::string& localIp,
                               const std::string& folder, bool compress, storage::iWriteObserver& written)
    : m_root(prepareRecording(groups, localIp.empty() ? 0 : localAddress(localIp), folder)), m_storage(m_root, ".data")
{
    if (!localIp.empty())
    {
        MultiRadarClient::getInstance()->setLocalInterface(localIp);
        m_chosen.emplace();
        m_chosen->waitForFirst(std::chrono::seconds(5));
    }
    for (const NetAddress& group : groups)
        addGroup(group);
    m_storage.SetFineTimes(true);
    m_storage.SetWriteObserver(&written);
    m_storage.CreateNewWritingFile(0ul, "groups", compress);
    requireFileBelow(m_root, m_storage.GetCurrentWriteDataFileName());
    join();
    if (notJoined() != 0)
        throw tFailure("a group could not be joined: --verbose shows the reason");
}

// A group that is named twice is recorded once.
void tGroupRecorder::addGroup(const NetAddress& address)
{
    const auto same = [&](const std::unique_ptr<tGroup>& group) { return group->m_address == address; };
    if (std::none_of(m_groups.begin(), m_groups.end(), same))
        m_groups.push_back(
            std::make_unique<tGroup>(address, m_received.expect(address, eOtherType), m_packageRecorder));
}

tGroupRecorder::tPlace tGroupRecorder::place() const
{
    tPlace place;
    if (m_chosen)
    {
        const tAddressFollower::tReport address = m_chosen->last();
        place.reports = address.count;
        place.localIp = address.localIp;
        return place;
    }
    for (const auto& group : m_groups)
        place.routes.push_back(net::routeAddress(group->m_address));
    place.localIp = place.routes.front();
    return place;
}

// While the chosen interface has no address nothing is joined: the kernel would join the groups on another one.
void tGroupRecorder::join()
{
    ++m_joins;
    m_place = place();
    if (m_chosen && m_place.localIp == 0)
        return;
    std::vector<net::tSourceRequest> requests;
    for (const auto& group : m_groups)
        requests.push_back({group.get(), group->m_address});
    m_sources = net::defaultTransport().openSources(requests, m_chosen ? m_place.localIp : 0, cReceiveBuffer);
}

void tGroupRecorder::leave()
{
    updateDiscarded();
    m_discardedBefore = m_discarded;
    m_sources.clear();
}

std::size_t tGroupRecorder::notJoined() const
{
    return static_cast<std::size_t>(
        std::ranges::count_if(m_sources, [](const auto& source) { return !source->joined(); }));
}

void tGroupRecorder::updateDiscarded()
{
    for (std::size_t i = 0; i < m_sources.size(); ++i)
    {
        const tStreamKey key = m_received.keyOf(m_groups[i]->m_address);
        m_discarded[key] = m_discardedBefore[key] + m_sources[i]->counters().kernelDropped;
    }
}

tRecorderState tGroupRecorder::state()
{
    if (!m_closed && place() != m_place)
    {
        leave();
        join();
    }
    updateDiscarded();
    tRecorderState state;
    state.streams = m_received.table();
    state.discarded = m_discarded;
    state.backlog = m_storage.GetWriteDataFifoSize();
    state.lost = m_storage.GetWriteLostCnt();
    state.done = m_storage.GetWriteDoneCnt();
    state.queued = m_storage.GetWriteQueuedCnt();
    state.file = m_storage.GetCurrentWriteDataFileName();
    state.addressReports = m_joins;
    state.localIp = m_place.localIp;
    state.notJoined = notJoined();
    return state;
}

void tGroupRecorder::closeSockets()
{
    m_closed = true;
    leave();
}

bool tGroupRecorder::waitWritten(unsigned int timeoutMs)
{
    return m_storage.WaitWriteIdle(timeoutMs);
}

void tGroupRecorder::closeFile()
{
    m_storage.FinishWrite();
}

void tGroupRecorder::tGroup::OnDatagram(const net::tReceivedDatagram& datagram)
{
    m_count.add(datagram.data, datagram.len);
    m_recorder.RecordFine(cInfo, datagram.group, datagram.data, datagram.len, datagram.arrived_ns / 1000);
}
}  // namespace session
