#include <cstring>

#include "KestovaUtils/multiradarclient.h"
#include "KestovaUtils/streamnames.h"

// Programs exchange the record as bytes: the offset of every field is fixed.
static_assert(offsetof(RadarAddress, radarIP) == 0);
static_assert(offsetof(RadarAddress, dedicated) == 4);
static_assert(offsetof(RadarAddress, dedicatedNumber) == 5);
static_assert(offsetof(RadarAddress, imageStream) == 6);
static_assert(offsetof(RadarAddress, imageStreamType) == 12);
static_assert(offsetof(RadarAddress, imageCtrl) == 13);
static_assert(offsetof(RadarAddress, imageCtrlType) == 19);
static_assert(offsetof(RadarAddress, imageState) == 20);
static_assert(offsetof(RadarAddress, imageStateType) == 26);
static_assert(offsetof(RadarAddress, arpaStream) == 27);
static_assert(offsetof(RadarAddress, arpaStreamType) == 33);
static_assert(offsetof(RadarAddress, arpaCtrl) == 34);
static_assert(offsetof(RadarAddress, arpaCtrlType) == 40);
static_assert(offsetof(RadarAddress, arpaState) == 41);
static_assert(offsetof(RadarAddress, arpaStateType) == 47);
static_assert(offsetof(RadarAddress, originalImage) == 48);
static_assert(offsetof(RadarAddress, originalImageType) == 54);
static_assert(offsetof(RadarAddress, aisDev) == 55);
static_assert(offsetof(RadarAddress, gpsDev) == 61);
static_assert(offsetof(RadarAddress, gpsDevType) == 67);
static_assert(offsetof(RadarAddress, depthDev) == 68);
static_assert(offsetof(RadarAddress, headingDev) == 74);
static_assert(offsetof(RadarAddress, cameraCtrl) == 80);
static_assert(offsetof(RadarAddress, cameraState) == 86);
static_assert(offsetof(RadarAddress, arpaServerCtrl) == 92);
static_assert(offsetof(RadarAddress, arpaServerState) == 98);
static_assert(offsetof(RadarAddress, radarClientCtrl) == 104);
static_assert(offsetof(RadarAddress, radarClientState) == 110);
static_assert(sizeof(RadarAddress) == 116);

namespace
{
// Kept: the slots are contiguous and ignore the type bytes between the named fields.
constexpr std::size_t cFirstSlot = 6;
constexpr std::size_t slotOf(unsigned int kind)
{
    return cFirstSlot + sizeof(NetAddress) * kind;
}
static_assert(slotOf(utils::cStreamKinds) <= sizeof(RadarAddress));
}  // namespace

NetAddress RadarAddress::streamAddress(unsigned int kind) const
{
    NetAddress address{0, 0};
    if (kind < utils::cStreamKinds)
        std::memcpy(&address, reinterpret_cast<const char*>(this) + slotOf(kind), sizeof address);
    return address;
}

void RadarAddress::setStreamAddress(unsigned int kind, const NetAddress& address)
{
    if (kind < utils::cStreamKinds)
        std::memcpy(reinterpret_cast<char*>(this) + slotOf(kind), &address, sizeof address);
}

const char* RadarAddress::streamName(unsigned int kind)
{
    return kind < utils::cStreamKinds ? utils::streamName(kind) : nullptr;
}

int RadarAddress::streamKind(const char* name)
{
    const int kind = name == nullptr ? -1 : utils::streamKind(name);
    return kind < static_cast<int>(utils::cStreamKinds) ? kind : -1;
}
