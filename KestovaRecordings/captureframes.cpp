#include "KestovaRecordings/captureframes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <limits>
#include <string_view>
#include <sys/stat.h>

#include "KestovaRecordings/captureinput.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/pcapfunctions.h"
#include "KestovaStorage/filehead.h"
#include "common/byteorder.h"

namespace recordings
{
namespace
{
constexpr std::size_t cHeadSize = 24;       // of a pcap file; a pcapng file begins with a block that is longer
constexpr std::size_t cAddressesSize = 12;  // of an Ethernet header
constexpr std::uint16_t cIpv4 = 0x0800, cIpv6 = 0x86DD;
constexpr std::uint32_t cPlainMagic = 0xA1B2C3D4, cEthernet = 1;
constexpr std::array<std::uint32_t, 7> cMagics{cPlainMagic, 0xD4C3B2A1, 0xA1B23C4D, 0x4D3CB2A1,
                                               0xA1B2CD34,  0x34CDB2A1, 0x0A0D0D0A};

struct tOtherFile
{
    std::string_view beginning;
    const char* what;
};
constexpr std::array<tOtherFile, 3> cCompressed{
    {{"\x1F\x8B", "gzip"}, {"\x28\xB5\x2F\xFD", "zstd"}, {std::string_view("\xFD\x37zXZ\0", 6), "xz"}}};

// Returns why these first bytes begin no capture; empty if they may.
std::string whyNoCapture(std::string_view head)
{
    for (const tOtherFile& other : cCompressed)
        if (head.starts_with(other.beginning))
            return fmt::format(" is compressed ({0}): unpack it first, as in {0} -dc FILE | kestova pcap -",
                               other.what);
    if (head.size() < sizeof(std::uint32_t))
        return " is no capture: it is shorter than a capture's head";
    const auto magic = le::load<std::uint32_t>(head.data());
    if (magic == storage::cDataFileHead || magic == storage::cHuffmanFileHead)
        return " is a data file of a recording, no capture: see kestova info";
    if (std::find(cMagics.begin(), cMagics.end(), magic) == cMagics.end())
        return fmt::format(" is no capture: it begins with {:08x}", magic);
    return head.size() < cHeadSize ? " is no capture: it is shorter than a capture's head" : "";
}

// Where the packet of a frame begins, and the type that its Ethernet header is to have.
struct tPacketPlace
{
    std::size_t pos;
    std::uint16_t type;
};

std::uint16_t typeOfIp(const char* packet)
{
    return static_cast<unsigned char>(*packet) >> 4 == 6 ? cIpv6 : cIpv4;
}

// Cooked frames have their protocol where Ethernet has its type: in the last two bytes of a header of 16 (SLL), or in
// the first two of a header of 20 (SLL2). Loopback frames begin with a number of the address family in the byte order
// of the machine that captured them; only IPv4's is the same everywhere, so that the packet itself tells.
tPacketPlace placeOf(int linkType, const char* bytes, std::size_t len)
{
    constexpr std::size_t cSll = 16, cSll2 = 20, cFamily = 4;
    const auto behind = [&](std::size_t head, std::size_t typeAt) {
        return len < head ? tPacketPlace{len, 0} : tPacketPlace{head, be::load<std::uint16_t>(bytes + typeAt)};
    };
    const auto packetAt = [&](std::size_t pos) {
        return len <= pos ? tPacketPlace{len, 0} : tPacketPlace{pos, typeOfIp(bytes + pos)};
    };
    switch (linkType)
    {
    case DLT_LINUX_SLL:
        return behind(cSll, cSll - sizeof(std::uint16_t));
    case DLT_LINUX_SLL2:
        return behind(cSll2, 0);
    case DLT_NULL:
    case DLT_LOOP:
        return packetAt(cFamily);
    default:
        return packetAt(0);
    }
}

bool isKnown(int linkType)
{
    constexpr std::array<int, 7> cLinkTypes{DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,
                                            DLT_IPV4,   DLT_NULL,      DLT_LOOP};
    return std::find(cLinkTypes.begin(), cLinkTypes.end(), linkType) != cLinkTypes.end();
}

std::string linkTypeText(int linkType)
{
    const char* const text = pcap_datalink_val_to_description(linkType);
    return text != nullptr ? text : "unknown";
}

std::uint64_t microseconds(const timeval& time)
{
    constexpr std::int64_t cLastSecond = std::numeric_limits<std::uint32_t>::max();
    const auto seconds = static_cast<std::uint64_t>(std::clamp<std::int64_t>(time.tv_sec, 0, cLastSecond));
    return seconds * 1'000'000 + static_cast<std::uint64_t>(std::clamp<std::int64_t>(time.tv_usec, 0, 999'999));
}

struct tClose
{
    void operator()(pcap_t* capture) const { pcap_close(capture); }
};
}  // namespace

bool isPlainCapture(const std::string& path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;  // not opened: a pipe's writer would lose its reader again
    const tDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::array<char, cHeadSize> head;
    return file.valid() && file.readAllAt(head.data(), head.size(), 0) &&
           le::load<std::uint32_t>(head.data()) == cPlainMagic && le::load<std::uint32_t>(&head[20]) == cEthernet;
}

bool isCapture(const std::string& path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    const tDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::array<char, sizeof(std::uint32_t)> magic;
    return file.valid() && file.readAllAt(magic.data(), magic.size(), 0) &&
           std::find(cMagics.begin(), cMagics.end(), le::load<std::uint32_t>(magic.data())) != cMagics.end();
}

class tCaptureFrames::tPrivate
{
public:
    tPrivate(const std::string& path, std::function<bool(std::uint64_t)> goOn) : m_input(path, std::move(goOn))
    {
        requireCapture();
        std::array<char, PCAP_ERRBUF_SIZE> error{};
        std::FILE* const stream = m_input.stream();
        m_capture.reset(pcap_fopen_offline(stream, error.data()));
        if (!m_capture)
        {
            std::fclose(stream);
            throw tFailure(m_input.name() + " cannot be read: " + error.data());
        }
        m_linkType = pcap_datalink(m_capture.get());
        if (!isKnown(m_linkType))
            throw tFailure(fmt::format("{} holds frames of link type {} ({}), which are not understood: capture on the "
                                       "network interface itself, as in tcpdump -i eth0 -w readable.pcap",
                                       m_input.name(), m_linkType, linkTypeText(m_linkType)));
    }

    bool next(tCapturedFrame& frame)
    {
        pcap_pkthdr* head = nullptr;
        const u_char* bytes = nullptr;
        const int outcome = m_end == eEnd::eNotYet ? pcap_next_ex(m_capture.get(), &head, &bytes) : PCAP_ERROR_BREAK;
        if (outcome != 1)
        {
            if (m_end == eEnd::eNotYet)
                m_end = endOf(outcome);
            m_input.rethrow();
            return false;
        }
        frame = {microseconds(head->ts), reinterpret_cast<const char*>(bytes), head->caplen};
        if (m_linkType != DLT_EN10MB)
            addEthernetHead(frame);
        return true;
    }

    eEnd m_end = eEnd::eNotYet;
    std::string error() const
    {
        return m_input.error() != 0 ? std::strerror(m_input.error()) : pcap_geterr(m_capture.get());
    }
    std::uint64_t size() const { return m_input.size(); }

private:
    void requireCapture()
    {
        const std::string& head = m_input.head(cHeadSize);
        if (m_input.cancelled())
            throw tFailure("interrupted before " + m_input.name() + " had a capture's head");
        if (m_input.error() != 0)
            throw tFailure(m_input.name() + " cannot be read: " + std::strerror(m_input.error()));
        const std::string why = head.empty() ? " is empty: no capture came" : whyNoCapture(head);
        if (!why.empty())
            throw tFailure(m_input.name() + why);
    }
    // libpcap reports a capture that ends within a record as an error.
    eEnd endOf(int outcome) const
    {
        if (m_input.cancelled())
            return eEnd::eCancelled;
        if (m_input.error() != 0)
            return eEnd::eFailed;
        return outcome == PCAP_ERROR_BREAK ? eEnd::eWhole : m_input.atEnd() ? eEnd::eCut : eEnd::eFailed;
    }
    void addEthernetHead(tCapturedFrame& frame)
    {
        const tPacketPlace packet = placeOf(m_linkType, frame.bytes, frame.len);
        std::array<char, sizeof packet.type> type;
        be::store(type.data(), packet.type);
        m_frame.assign(cAddressesSize, '\0');
        m_frame.append(type.data(), type.size()).append(frame.bytes + packet.pos, frame.len - packet.pos);
        frame.bytes = m_frame.data();
        frame.len = m_frame.size();
    }

    tCaptureInput m_input;
    std::unique_ptr<pcap_t, tClose> m_capture;  // reads m_input
    int m_linkType = 0;
    std::string m_frame;  // with the header that it did not have
};

tCaptureFrames::tCaptureFrames(const std::string& path, std::function<bool(std::uint64_t)> goOn)
    : d(std::make_unique<tPrivate>(path, std::move(goOn)))
{}

tCaptureFrames::~tCaptureFrames() = default;

bool tCaptureFrames::next(tCapturedFrame& frame)
{
    return d->next(frame);
}

tCaptureFrames::eEnd tCaptureFrames::end() const
{
    return d->m_end;
}

std::string tCaptureFrames::error() const
{
    return d->error();
}

std::uint64_t tCaptureFrames::size() const
{
    return d->size();
}
}  // namespace recordings
