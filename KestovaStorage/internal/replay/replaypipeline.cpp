#include "KestovaStorage/internal/replay/replaypipeline.h"

#include <utility>

#include "KestovaStorage/internal/radar/radarstreams.h"
#include "KestovaStorage/internal/replay/replayoutput.h"

namespace Kestova
{
namespace
{
constexpr tSenderType cUserSender = 2;  // a command from the user's display to the radar
}

void tReplayPipeline::replay(tTimes_ms replayTime, double progress, const char* package, std::uint32_t len,
                             const std::string& fileName, iRadarDataReplayObserver* observer)
{
    if (!m_record.load(package, len))
    {
        ++m_damagedCnt;
        return;
    }
    switchFile(fileName, observer);
    if (m_record.msgInfo().sender == cUserSender)
    {
        ++m_userCtrlMsgCnt;
        reportCounters(observer);
        return;
    }
    m_record.stampReplayTime(replayTime);
    if (isSelected(progress))
        process({replayTime, progress, observer});
    if (m_record.msgInfo().type == eMultiRadarService)
    {
        m_record.markReplayed();
        countService(observer);
        if (m_network != nullptr)
            m_network->repeat(m_record.message());
    }
}

void tReplayPipeline::switchFile(const std::string& fileName, iRadarDataReplayObserver* observer)
{
    if (fileName == m_currFileName)
        return;
    m_currFileName = fileName;
    reportCounters(observer);
}

bool tReplayPipeline::isSelected(double progress) const
{
    const tUdpMsgInfo& info = m_record.msgInfo();
    // Kept: the last record of the span passes, and so does the kind behind the last one.
    return info.type == eMultiRadarNegotiate || (info.type == eReadType && info.rwType == eRadarCheck) ||
           m_types.test(info.rwType) || progress == 1.0 || info.rwType == eTotalReadWriteTypes;
}

void tReplayPipeline::process(const tReplayContext& context)
{
    m_dataModifyObserver.through([&](iRadarReplayModifyObserver& observer) { modify(observer, context); });
    if (context.observer != nullptr)
        context.observer->UpdateReplayData(context.replayTime, m_record.timestamp_ms(), m_record.msgInfo().type,
                                           m_record.msgInfo().rwType, context.progress,
                                           net::transAddr(m_record.udpAddr).c_str(), m_record.udpPort,
                                           m_record.payload(), m_record.msgLen());
    if (m_network != nullptr)
        send(context.replayTime);
    // Kept: a service message on the service group is counted here and once more for its kind.
    if (m_record.udpAddr == multiRadarServiceAddress().ip)
        countService(context.observer);
}

void tReplayPipeline::modify(iRadarReplayModifyObserver& observer, const tReplayContext& context)
{
    const std::string group = net::transAddr(m_record.udpAddr);
    observer.UpdateReplayDataModify(context.replayTime, m_record.timestamp_ms(), m_record.msgInfo().type,
                                    m_record.msgInfo().rwType, context.progress, group.c_str(), m_record.udpPort,
                                    m_record.payload(), m_record.msgLen());
    keepSpoke(observer, group.c_str());
    observer.UpdateReplayAddrModify(&m_record.udpAddr, &m_record.udpPort);
}

void tReplayPipeline::keepSpoke(iRadarReplayModifyObserver& observer, const char* group)
{
    int loopNumber = -1;
    int azimuth = -1;
    const bool needed =
        observer.CheckIfNeededCircleLoop(m_record.msgInfo().type, m_record.msgInfo().rwType, group, m_record.udpPort,
                                         m_record.payload(), m_record.msgLen(), loopNumber, azimuth);
    if (needed && loopNumber >= 0 && azimuth >= 0 && m_network != nullptr)
        m_network->keepSpoke(loopNumber, {static_cast<std::uint32_t>(azimuth), m_record.udpAddr, m_record.udpPort,
                                          std::string(m_record.message())});
}

void tReplayPipeline::send(tTimes_ms replayTime)
{
    tReplaySending sending = eReplaySendAsItIs;
    m_sender.through([&](iRadarReplaySender& sender) {
        sending = sender.SendReplayRecord(replayTime, m_record.msgInfo().type, m_record.msgInfo().rwType,
                                          m_record.udpAddr, m_record.udpPort, m_record.payload(), m_record.msgLen());
    });
    const bool sent = sending == eReplaySendAsItIs ? m_network->send(m_record.destination(), m_record.message())
                                                   : sending == eReplaySentOtherwise;
    ++(sent ? m_sentCnt : m_refusedCnt);
    m_sendObserver.through([sent](iRadarReplaySendObserver& observer) { observer.UpdateReplaySent(sent); });
}

void tReplayPipeline::countService(iRadarDataReplayObserver* observer)
{
    ++m_multiServiceMsgCnt;
    reportCounters(observer);
}

void tReplayPipeline::reportCounters(iRadarDataReplayObserver* observer) const
{
    if (observer != nullptr)
        observer->UpdateFileName(m_currFileName + "\r\nUser Ctrl Cnt: " + std::to_string(m_userCtrlMsgCnt) +
                                 "\r\nMulti Service Cnt: " + std::to_string(m_multiServiceMsgCnt));
}
}  // namespace Kestova
