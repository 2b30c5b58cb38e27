#include "KestovaStorage/internal/package/packagesplitter.h"

#include <cstdio>
#include <cstring>

#include "common/byteorder.h"

namespace
{
bool startsWith(const char* bytes, const char* mark, std::size_t markLen)
{
    return std::memcmp(bytes, mark, markLen) == 0;
}

// Returns the eight bytes at `pos` as a number, 0 if the buffer does not hold them all.
std::uint64_t wordAt(const char* bytes, std::size_t len, std::size_t pos)
{
    return pos + sizeof(std::uint64_t) <= len ? le::load<std::uint64_t>(bytes + pos) : 0;
}
}  // namespace

// Composes a console line; its arguments are numbers and texts of eight bytes.
template <typename... tArgs>
void tPackageSplitter::print(const char* format, tArgs... args)
{
    char line[128];
    std::snprintf(line, sizeof line, format, args...);
    m_sink.OnLine(line);
}

std::size_t tPackageSplitter::split(const char* bytes, std::size_t len)
{
    std::size_t pos = 0;
    while (len - pos >= cPackageOverhead && m_sink.GoOn())
    {
        const std::size_t done = parseOne(bytes + pos, len - pos);
        if (done == 0)
            break;
        pos += done;
    }
    return pos;
}

// Parses one item at the start of the bytes. Returns its length, 0 for a package that is not complete yet.
std::size_t tPackageSplitter::parseOne(const char* bytes, std::size_t len)
{
    if (startsWith(bytes, cPackageHeadMark, cPackageMarkSize))
        return takePackage(bytes, len);
    if (startsWith(bytes, cHeartbeatMark, cHeartbeatMarkSize))
        return skipHeartbeat();
    return skipToNextHead(bytes, len);
}

std::size_t tPackageSplitter::takePackage(const char* bytes, std::size_t len)
{
    const std::size_t payloadLen = le::load<std::uint16_t>(bytes + offsetof(tRadarMsgPackage, msgLen));
    const std::size_t total = packageSize(payloadLen);
    const std::size_t endPos = total - cPackageMarkSize;
    if (total > cMaxStreamPackage)  // longer than a stream can carry: its length field is damaged
        return skipBadEnd(wordAt(bytes, len, endPos), len);
    if (len < total)
        return 0;
    if (!startsWith(bytes + endPos, cPackageEndMark, cPackageMarkSize))
        return skipBadEnd(wordAt(bytes, len, endPos), len);
    deliver(bytes, total);
    return total;
}

void tPackageSplitter::deliver(const char* package, std::size_t len)
{
    const auto received = le::load<std::uint32_t>(package + offsetof(tRadarMsgPackage, packCnt));
    const std::uint32_t resets = m_expected.resets();
    checkNumber(received, resets);
    m_sink.OnPackage(package, len);
    m_expected.store(received + 1, resets);
}

// Continues with the received number after a gap, so that the gap is reported once.
void tPackageSplitter::checkNumber(std::uint32_t received, std::uint32_t resets)
{
    const std::uint32_t expected = m_expected.numberSince(resets);
    if (expected == received)
        return;
    if (expected != 0)
        print("\t *** discontinuous data, cnt %d rec %d ***\r\n", static_cast<int>(expected),
              static_cast<int>(received));
    m_expected.store(received, resets);
}

// Only the smallest possible package is skipped, not the claimed one: its length may be what is damaged.
std::size_t tPackageSplitter::skipBadEnd(std::uint64_t end, std::size_t len)
{
    print("\t *** bad end %llX remain_size %d ***\r\n", static_cast<unsigned long long>(end), static_cast<int>(len));
    return cPackageOverhead;
}

std::size_t tPackageSplitter::skipHeartbeat()
{
    print("... Client ID:%d HeartBeat!\r\n", m_sink.Id());
    return cHeartbeatSize;
}

// Without another head everything is dropped, the first part of a head cut in two included.
std::size_t tPackageSplitter::skipToNextHead(const char* bytes, std::size_t len)
{
    char text[cPackageMarkSize + 1] = {};
    std::memcpy(text, bytes, cPackageMarkSize);
    print("\t *** bad head %llX:%s remain_size %d ***\r\n",
          static_cast<unsigned long long>(le::load<std::uint64_t>(bytes)), static_cast<const char*>(text),
          static_cast<int>(len));
    const void* const head = ::memmem(bytes, len, cPackageHeadMark, cPackageMarkSize);
    const std::size_t dropped =
        head != nullptr ? static_cast<std::size_t>(static_cast<const char*>(head) - bytes) : len;
    print("\t *** delete %d remain %d ***\r\n", static_cast<int>(dropped), static_cast<int>(len - dropped));
    return dropped;
}
