#include "sessions/record/grouprecorder.h"

#include <algorithm>

#include "KestovaRecordings/failure.h"
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

tGroupRecorder::tGroupRecorder(const std::vector<NetAddress>& groups, std::uint32_t localIp, const std::string& folder,
                               bool compress, storage::iWriteObserver& written)
    : m_root(prepareRecording(groups, localIp, folder)), m_storage(m_root, ".data")
{
    for (const NetAddress& group : groups)
        addGroup(group);
    m_storage.SetFineTimes(true);
    m_storage.SetWriteObserver(&written);
    m_storage.CreateNewWritingFile(0ul, "groups", compress);
    requireFileBelow(m_root, m_storage.GetCurrentWriteDataFileName());
    join(localIp);
}

// A group that is named twice is recorded once.
void tGroupRecorder::addGroup(const NetAddress& address)
{
    const auto same = [&](const std::unique_ptr<tGroup>& group) { return group->m_address == address; };
    if (std::none_of(m_groups.begin(), m_groups.end(), same))
        m_groups.push_back(
            std::make_unique<tGroup>(address, m_received.expect(address, eOtherType), m_packageRecorder));
}

void tGroupRecorder::join(std::uint32_t localIp)
{
    std::vector<net::tSourceRequest> requests;
    for (const auto& group : m_groups)
        requests.push_back({group.get(), group->m_address});
    m_sources = net::defaultTransport().openSources(requests, localIp, cReceiveBuffer);
    for (const auto& source : m_sources)
    {
        if (!source->joined())
            throw tFailure("a group could not be joined: --verbose shows the reason");
    }
}

void tGroupRecorder::updateDiscarded()
{
    for (std::size_t i = 0; i < m_sources.size(); ++i)
        m_discarded[m_received.keyOf(m_groups[i]->m_address)] = m_sources[i]->counters().kernelDropped;
}

tRecorderState tGroupRecorder::state()
{
    updateDiscarded();
    tRecorderState state;
    state.streams = m_received.table();
    state.discarded = m_discarded;
    state.backlog = m_storage.GetWriteDataFifoSize();
    state.lost = m_storage.GetWriteLostCnt();
    state.done = m_storage.GetWriteDoneCnt();
    state.queued = m_storage.GetWriteQueuedCnt();
    state.file = m_storage.GetCurrentWriteDataFileName();
    return state;
}

void tGroupRecorder::closeSockets()
{
    updateDiscarded();
    m_sources.clear();
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
