#include "sessions/record/grouprecorder.h"

#include "KestovaRecordings/failure.h"
#include "sessions/record/recordingchecks.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr int cReceiveBuffer = 4 * 1024 * 1024;
constexpr tUdpMsgInfo cInfo = {0, 0, eReadType, eOtherType, 0};
}  // namespace

tGroupRecorder::tGroupRecorder(const std::vector<NetAddress>& groups, std::uint32_t localIp, const std::string& folder,
                               bool compress)
    : m_root(prepareRecording(groups, localIp, folder)), m_storage(m_root, ".data")
{
    for (const NetAddress& group : groups)
        m_received.expect(group, eOtherType);
    m_storage.CreateNewWritingFile(0ul, "groups", compress);
    requireFileBelow(m_root, m_storage.GetCurrentWriteDataFileName());
    for (const NetAddress& group : groups)
    {
        auto& receiver = m_receivers[group];
        receiver = net::defaultTransport().openSource(this, group, localIp, cReceiveBuffer);
        if (!receiver->joined())
            throw tFailure("a group could not be joined: --verbose shows the reason");
    }
}

void tGroupRecorder::updateDiscarded()
{
    for (const auto& [group, receiver] : m_receivers)
        m_discarded[m_received.keyOf(group)] = receiver->counters().kernelDropped;
}

tRecorderState tGroupRecorder::state()
{
    updateDiscarded();
    tRecorderState state;
    state.streams = m_received.table();
    state.discarded = m_discarded;
    state.backlog = m_storage.GetWriteDataFifoSize();
    state.lost = m_storage.GetWriteLostCnt();
    state.file = m_storage.GetCurrentWriteDataFileName();
    return state;
}

void tGroupRecorder::closeSockets()
{
    updateDiscarded();
    m_receivers.clear();
}

bool tGroupRecorder::waitWritten(unsigned int timeoutMs)
{
    return m_storage.WaitWriteIdle(timeoutMs);
}

void tGroupRecorder::closeFile()
{
    m_storage.FinishWrite();
}

void tGroupRecorder::OnDatagram(const net::tReceivedDatagram& datagram)
{
    m_received.add(datagram.group, datagram.data, datagram.len);
    m_packageRecorder.Record(cInfo, datagram.group, datagram.data, datagram.len, 0);
}
}  // namespace session
