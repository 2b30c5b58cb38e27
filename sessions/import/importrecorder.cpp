#include "sessions/import/importrecorder.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "KestovaRecordings/frames.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/record/sheetfacts.h"

namespace session
{
using namespace recordings;

namespace
{
// The info block of each kind that the capture reader knows. Other datagrams, control messages included, become
// eOtherType with sender 0, which a replay sends, too.
struct tKindInfo
{
    std::string_view kind;
    tReadWriteType stream;
};
constexpr std::array<tKindInfo, 6> cKinds{{{"Spoke", eImageStream},
                                           {"OriSpoke", eOriginalImage},
                                           {"Spoke OriSpoke", eOriginalImage},
                                           {"RadarState", eImageState},
                                           {"RATTM", eArpaStream},
                                           {"RHTTM", eArpaStream}}};

tUdpMsgInfo infoOf(std::string_view kind)
{
    for (const tKindInfo& known : cKinds)
        if (known.kind == kind)
            return {1, 2, eReadType, known.stream, 0};
    return {0, 0, eReadType, eOtherType, 0};
}

// Never less than a millisecond: 0 means now to a recorder.
std::uint64_t microseconds(std::uint64_t us)
{
    return std::max<std::uint64_t>(1000, us);
}
}  // namespace

tImportRecorder::tImportRecorder(const std::string& root, std::string name)
    : m_writer(root, std::move(name), importedSheetFacts(), true)
{}

void tImportRecorder::add(const pcap::tPcapDatagram& datagram, const tUdpMsgInfo* info)
{
    if (datagram.len > static_cast<int>(cMaxDatagram))  // false fragment offsets can exceed it
    {
        ++m_tooLong;
        return;
    }
    const NetAddress group{net::transAddr(datagram.address), net::HtoNs(static_cast<std::uint16_t>(datagram.port))};
    m_writer.add(info != nullptr ? *info : infoOf(datagram.kind), group,
                 {datagram.payload, static_cast<std::size_t>(datagram.len)}, microseconds(datagram.time_us));
}
}  // namespace session
