#include "KestovaRecordings/capturekind.h"

#include <array>
#include <fmt/format.h>
#include <string_view>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/pcapreader.h"

namespace recordings
{
namespace
{
constexpr std::uint32_t cReadableMagic = 0xA1B2C3D4;
constexpr std::uint32_t cEthernet = 1;

struct tOtherKind
{
    std::uint32_t magic;
    std::string_view name;
};
constexpr std::array<tOtherKind, 5> cOtherKinds{{
    {0xD4C3B2A1, "a capture in the other byte order"},
    {0xA1B23C4D, "a capture with nanosecond stamps"},
    {0x4D3CB2A1, "a capture with nanosecond stamps in the other byte order"},
    {0x0A0D0D0A, "a pcapng capture"},
    {0xA1B2CD34, "a capture with extended record heads"},
}};

struct tLinkType
{
    std::uint32_t number;
    std::string_view name;
};
constexpr std::array<tLinkType, 7> cLinkTypes{{{0, "BSD loopback"},
                                               {101, "raw IP"},
                                               {105, "IEEE 802.11"},
                                               {113, "Linux cooked"},
                                               {127, "802.11 with radio information"},
                                               {228, "raw IPv4"},
                                               {276, "Linux cooked v2"}}};
}  // namespace

std::string whyUnreadable(std::uint32_t magic, std::uint32_t linkType, const std::string& path)
{
    for (const tOtherKind& kind : cOtherKinds)
        if (kind.magic == magic)
            return fmt::format("{} is {}: convert it with editcap -F pcap {} readable.pcap", path, kind.name, path);
    if (magic != cReadableMagic)
        return fmt::format("{} is no capture: it begins with {:08x}", path, magic);
    if (linkType == cEthernet)
        return {};
    std::string name = "unknown";
    for (const tLinkType& known : cLinkTypes)
        if (known.number == linkType)
            name = known.name;
    return fmt::format(
        "{} holds frames of link type {} ({}), not Ethernet: capture on the network interface itself, as "
        "in tcpdump -i eth0 -w readable.pcap, not on \"any\"",
        path, linkType, name);
}

void requireReadableCapture(const std::string& path)
{
    if (storage::tDataStorageIO::IsFileOrFolder(path) == storage::eNoExist)
        throw tFailure(path + ": no such file");
    pcap::tPcapFileHead head{};
    if (!pcap::tPcapReader::GetFileHead(path, head))
        throw tFailure(path + " is no capture: it cannot be read, or is shorter than a capture's head");
    const std::string why = whyUnreadable(head.magic, head.linkType, path);
    if (!why.empty())
        throw tFailure(why);
}
}  // namespace recordings
