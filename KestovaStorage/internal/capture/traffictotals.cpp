#include "KestovaStorage/internal/capture/traffictotals.h"

#include "UdpSocket/consoleprint.h"

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
    Kestova::console::print("\r\nread over: lhctrl %d lhttm %d rattm %d rhttm %d\n", m_lhCtrl, m_lhTtm, m_raTtm,
                            m_raTtm);
    Kestova::console::print("           ori %d spoke %d\r\n", m_ori, m_spoke);
    Kestova::console::print("           lhins %d ins %d\r\n", m_lhIns, m_ins);
    Kestova::console::print("           suberr %d \r\n", subErr);
}
}  // namespace pcap
