#include "KestovaStorage/internal/replay/editablerecord.h"

#include <cstring>

#include "KestovaStorage/imagestate.h"
#include "KestovaStorage/packageview.h"
#include "UdpSocket/udpsocket.h"
#include "common/byteorder.h"

namespace Kestova
{
namespace
{
// The multi-radar service message and the place of its mark.
constexpr int cServiceLen = 222;
constexpr std::size_t cServiceMarkPos = 14;
constexpr char cReplayedMark[] = {'_', 'R'};

static_assert(cServiceMarkPos + sizeof cReplayedMark <= cServiceLen);
}  // namespace

bool tEditableRecord::load(const char* bytes, std::size_t len)
{
    const tRadarMsgPackage* const package = asPackage(bytes, len);
    if (package == nullptr)
        return false;
    m_bytes.assign(bytes, bytes + len);
    m_msgInfo = package->msgInfo;
    m_timestamp_ms = package->timestamp_ms;
    m_msgLen = package->msgLen;
    udpAddr = package->udpAddr;
    udpPort = package->udpPort;
    return true;
}

char* tEditableRecord::payload()
{
    return m_bytes.data() + cPackageHeadSize;
}

NetAddress tEditableRecord::destination() const
{
    return {udpAddr, net::HtoNs(udpPort)};
}

void tEditableRecord::stampReplayTime(std::uint64_t replayTime)
{
    if (isImageState(payload(), static_cast<std::size_t>(m_msgLen)))
        le::store(payload() + cImageStateTimePos, replayTime);
}

void tEditableRecord::markReplayed()
{
    if (m_msgLen == cServiceLen)
        std::memcpy(payload() + cServiceMarkPos, cReplayedMark, sizeof cReplayedMark);
}
}  // namespace Kestova
