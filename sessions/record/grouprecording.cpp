#include "sessions/record/grouprecording.h"

#include "KestovaRecordings/failure.h"

#include "sessions/record/recordingplace.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr int cReceiveBuffer = 4 * 1024 * 1024;
constexpr tUdpMsgInfo cInfo = {0, 0, eReadType, eOtherType, 0};
}  // namespace

tGroupRecording::tGroupRecording(const std::vector<NetAddress>& groups, std::uint32_t localIp,
                                 const std::string& folder, bool compress)
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
            throw tFailure("a group could not be joined: see the line above");
    }
}

void tGroupRecording::noteDiscarded()
{
    for (const auto& [group, receiver] : m_receivers)
        m_discarded[m_received.keyOf(group)] = receiver->counters().kernelDropped;
}

tRecordingState tGroupRecording::state()
{
    noteDiscarded();
    tRecordingState state;
    state.streams = m_received.table();
    state.discarded = m_discarded;
    state.backlog = m_storage.GetWriteDataFifoSize();
    state.lost = m_storage.GetWriteLostCnt();
    state.file = m_storage.GetCurrentWriteDataFileName();
    return state;
}

void tGroupRecording::closeSockets()
{
    noteDiscarded();
    m_receivers.clear();
}

bool tGroupRecording::waitWritten(unsigned int timeoutMs)
{
    return m_storage.WaitWriteIdle(timeoutMs);
}

void tGroupRecording::closeFile()
{
    m_storage.FinishWrite();
}

void tGroupRecording::OnDatagram(const net::tReceivedDatagram& datagram)
{
    m_received.add(datagram.group, datagram.data, datagram.len);
    m_recorder.Record(cInfo, datagram.group, datagram.data, datagram.len, 0);
}
}  // namespace session
