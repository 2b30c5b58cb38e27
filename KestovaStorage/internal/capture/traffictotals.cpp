#include "KestovaStorage/internal/capture/traffictotals.h"

#include <cstdio>

namespace pcap
{
bool tTrafficTotals::add(eTraffic traffic, std::string_view payload)
{
    switch (traffic)
    {
    case eTraffic::eTargets:
        m_raTtm += payload.starts_with(cRattmPrefix);
        return true;
    case eTraffic::eLocalTargets:
        m_lhTtm += payload.starts_with(cRattmPrefix);
        return true;
    case eTraffic::eSpokes:
        return addSpoke(payload.size());
    case eTraffic::eControl:
        ++m_lhCtrl;
        return true;
    case eTraffic::eSensor:
        ++m_ins;
        return true;
    case eTraffic::eLocalSensor:
        ++m_lhIns;
        return true;
    case eTraffic::eOther:
        break;
    }
    return true;
}

bool tTrafficTotals::addSpoke(std::size_t length)
{
    m_spoke += length == cSpokeLength || length == cSpokeOriSpokeLength;
    m_ori += length == cOriSpokeLength || length == cSpokeOriSpokeLength;
    return length != cOriSpokeLength && length != cSpokeOriSpokeLength;
}

void tTrafficTotals::print(int subErr) const
{
    // Kept: RHTTM messages are not counted apart, their place shows the count of RATTM.
    std::printf("\r\nread over: lhctrl %d lhttm %d rattm %d rhttm %d\n", m_lhCtrl, m_lhTtm, m_raTtm, m_raTtm);
    std::printf("           ori %d spoke %d\r\n", m_ori, m_spoke);
    std::printf("           lhins %d ins %d\r\n", m_lhIns, m_ins);
    std::printf("           suberr %d \r\n", subErr);
}
}  // namespace pcap
