// How a radar message package is written.
#ifndef KESTOVA_STORAGE_PACKAGE_PACKAGEFORMAT_H
#define KESTOVA_STORAGE_PACKAGE_PACKAGEFORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "KestovaStorage/finetimesformat.h"
#include "KestovaStorage/packageview.h"
#include "common/byteorder.h"

// The fields of a head that its maker chooses; head mark and length follow from the rest.
struct tPackageFields
{
    tUdpMsgInfo msgInfo;
    std::uint32_t packCnt;
    std::uint32_t udpAddr;
    std::uint16_t udpPort;
    std::uint64_t timestamp_ms;
    std::uint16_t us = storage::cNoFineTime;  // of the time stamp; no part of the package
};

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

#endif
