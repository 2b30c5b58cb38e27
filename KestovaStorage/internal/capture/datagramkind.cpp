#include "KestovaStorage/internal/capture/datagramkind.h"

#include <algorithm>

namespace pcap
{
namespace
{
constexpr tDestination cRadarCtrl = destination(234, 5, 8, 24, 35096), cRadarState = destination(234, 5, 8, 25, 35097);

constexpr std::string_view cInsPrefixes[] = {"$HEROT", "$SNATT", "$GNZDA", "$GNGLL", "$GNVTG", "$HEHDT"};

constexpr struct
{
    tDestination stream;
    eTraffic traffic;
} cDestinations[] = {{destination(234, 5, 8, 29, 35101), eTraffic::eTargets},
                     {destination(234, 5, 8, 29, 35102), eTraffic::eTargets},
                     {destination(224, 0, 1, 60, 6000), eTraffic::eLocalTargets},
                     {destination(234, 5, 8, 23, 35095), eTraffic::eSpokes},
                     {destination(192, 168, 0, 87, 12345), eTraffic::eControl},
                     {destination(192, 168, 0, 87, 12346), eTraffic::eControl},
                     {destination(192, 168, 0, 87, 10063), eTraffic::eControl},
                     {destination(192, 168, 0, 87, 35096), eTraffic::eControl},
                     {destination(192, 168, 0, 33, 20844), eTraffic::eSensor},
                     {destination(192, 168, 20, 109, 12800), eTraffic::eSensor},
                     {destination(234, 1, 2, 3, 34123), eTraffic::eSensor},
                     {destination(192, 168, 1, 255, 12005), eTraffic::eSensor},
                     {destination(224, 100, 100, 10, 20840), eTraffic::eSensor},
                     {destination(224, 100, 100, 30, 20842), eTraffic::eSensor},
                     {destination(235, 0, 0, 1, 20481), eTraffic::eSensor},
                     {destination(255, 255, 255, 255, 12800), eTraffic::eSensor},
                     {destination(255, 255, 255, 255, 34123), eTraffic::eSensor},
                     {destination(255, 255, 255, 255, 8080), eTraffic::eSensor},
                     {destination(224, 0, 2, 10, 10101), eTraffic::eLocalSensor}};

// `text` ends before the payload's first zero byte. Kept: a spoke's mark is compared as a text of one byte, so it is
// recognised only if a zero follows it.
bool markedAs(std::string_view mark, std::string_view text)
{
    return text.substr(2, 2) == mark;
}
}  // namespace

const char* kindText(eMessageKind kind)
{
    static constexpr const char* cTexts[cKindCount] = {
        "Spoke", "OriSpoke", "Spoke OriSpoke", "RadarCtrl", "RadarState", "RATTM", "RHTTM", "INS", "Unknow"};
    return cTexts[static_cast<std::size_t>(kind)];
}

eMessageKind udpType(tDestination stream, std::string_view payload)
{
    const std::string_view start = payload.substr(0, cRattmPrefix.size());  // no comparison reads further
    const std::string_view text = start.substr(0, start.find('\0'));
    if (payload.size() == cSpokeLength && markedAs("\xE0", text))
        return eMessageKind::eSpoke;
    if (payload.size() == cOriSpokeLength && markedAs("\xE0\x01", text))
        return eMessageKind::eOriSpoke;
    if (payload.size() == cSpokeOriSpokeLength && markedAs("\xE0", text))
        return eMessageKind::eSpokeOriSpoke;
    if (stream == cRadarCtrl)
        return eMessageKind::eRadarCtrl;
    if (stream == cRadarState)
        return eMessageKind::eRadarState;
    if (text == cRattmPrefix)
        return eMessageKind::eRattm;
    if (text == cRhttmPrefix)
        return eMessageKind::eRhttm;
    const std::string_view talker = text.substr(0, cInsPrefixes[0].size());
    return std::ranges::find(cInsPrefixes, talker) != std::end(cInsPrefixes) ? eMessageKind::eIns
                                                                             : eMessageKind::eUnknow;
}

eTraffic trafficTo(tDestination stream)
{
    const auto* const found = std::ranges::find(cDestinations, stream, [](const auto& entry) { return entry.stream; });
    return found != std::end(cDestinations) ? found->traffic : eTraffic::eOther;
}
}  // namespace pcap
