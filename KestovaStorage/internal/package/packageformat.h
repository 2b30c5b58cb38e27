// The radar message package in bytes: its marks, sizes and offsets, how one is written and how one is looked at.
#ifndef KESTOVA_STORAGE_PACKAGE_PACKAGEFORMAT_H
#define KESTOVA_STORAGE_PACKAGE_PACKAGEFORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "KestovaStorage/radarmsgpackage.h"
#include "common/byteorder.h"

inline constexpr char cPackageHeadMark[] = "Quorvale";
inline constexpr char cPackageEndMark[] = "ZQ_Radar";
inline constexpr char cHeartbeatMark[] = "check";

inline constexpr std::size_t cPackageMarkSize = 8;                                    // both marks, without terminator
inline constexpr std::size_t cPackageHeadSize = sizeof(tRadarMsgPackage);             // before the payload
inline constexpr std::size_t cPackageOverhead = cPackageHeadSize + cPackageMarkSize;  // around the payload
inline constexpr std::size_t cMaxStreamPackage = std::numeric_limits<std::uint16_t>::max();  // that a stream can carry
inline constexpr std::size_t cHeartbeatMarkSize = sizeof cHeartbeatMark - 1;
inline constexpr std::size_t cHeartbeatSize = cHeartbeatMarkSize + 1;  // the last byte is any

static_assert(sizeof cPackageHeadMark == cPackageMarkSize + 1 && sizeof cPackageEndMark == cPackageMarkSize + 1);
static_assert(cPackageHeadSize == 33 && cPackageOverhead == 41);

// The fields of a head that its maker chooses; head mark and length follow from the rest.
struct tPackageFields
{
    tUdpMsgInfo msgInfo;
    std::uint32_t packCnt;
    std::uint32_t udpAddr;
    std::uint16_t udpPort;
    std::uint64_t timestamp_ms;
};

constexpr std::size_t packageSize(std::size_t payloadLen)
{
    return payloadLen + cPackageOverhead;
}

inline void stampPackCnt(char* package, std::uint32_t packCnt)
{
    le::store(package + offsetof(tRadarMsgPackage, packCnt), packCnt);
}

// Writes the 33 bytes of a head. msgLen keeps the low 16 bits of `payloadLen`.
inline void writePackageHead(char* to, const tPackageFields& fields, std::size_t payloadLen)
{
    std::memcpy(to, cPackageHeadMark, cPackageMarkSize);
    std::memcpy(to + offsetof(tRadarMsgPackage, msgInfo), &fields.msgInfo, sizeof fields.msgInfo);
    stampPackCnt(to, fields.packCnt);
    le::store(to + offsetof(tRadarMsgPackage, udpAddr), fields.udpAddr);
    le::store(to + offsetof(tRadarMsgPackage, udpPort), fields.udpPort);
    le::store(to + offsetof(tRadarMsgPackage, timestamp_ms), fields.timestamp_ms);
    le::store(to + offsetof(tRadarMsgPackage, msgLen), static_cast<std::uint16_t>(payloadLen));
}

// Writes a whole package, packageSize(payloadLen) bytes.
inline void writePackage(char* to, const tPackageFields& fields, const char* payload, std::size_t payloadLen)
{
    writePackageHead(to, fields, payloadLen);
    if (payloadLen != 0)
        std::memcpy(to + cPackageHeadSize, payload, payloadLen);
    std::memcpy(to + cPackageHeadSize + payloadLen, cPackageEndMark, cPackageMarkSize);
}

// The package that starts at `bytes`, looked at in place; null unless head and payload lie within `len` bytes. Marks
// are not looked at. Its fields are little-endian as stored, like the machines that this is built for.
inline const tRadarMsgPackage* asPackage(const char* bytes, std::size_t len)
{
    if (bytes == nullptr || len < cPackageHeadSize)
        return nullptr;
    const auto* const package = reinterpret_cast<const tRadarMsgPackage*>(bytes);
    return package->msgLen <= len - cPackageHeadSize ? package : nullptr;
}

// The package that `len` bytes are: null unless they are exactly one whole package, marks included.
inline const tRadarMsgPackage* asWholePackage(const char* bytes, std::size_t len)
{
    const tRadarMsgPackage* const package = asPackage(bytes, len);
    if (package == nullptr || len != packageSize(package->msgLen) ||
        std::memcmp(bytes, cPackageHeadMark, cPackageMarkSize) != 0 ||
        std::memcmp(bytes + len - cPackageMarkSize, cPackageEndMark, cPackageMarkSize) != 0)
        return nullptr;
    return package;
}

#endif
