// recordedPackages: what a recorder left below a folder, package by package.
#ifndef KESTOVA_TESTS_RECORDEDPACKAGES_H
#define KESTOVA_TESTS_RECORDEDPACKAGES_H

#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/udpsocket.h"
#include "support/recordedsegments.h"

struct tRecordedPackage
{
    tUdpMsgInfo msgInfo;
    std::uint32_t packCnt;
    NetAddress group;  // its port a plain number, as packages have it
    std::uint64_t timestamp_ms;
    std::uint16_t msgLen;
    std::string payload;
    std::uint64_t timeMs;  // of the record
};

inline std::string asText(const tUdpMsgInfo& info)
{
    const int fields[] = {info.sender, info.recver, info.type, info.rwType, info.radarMultiNum};
    std::string text;
    for (const int field : fields)
        text += (text.empty() ? "" : ",") + std::to_string(field);
    return text;
}

// Its group as "239.17.0.1:6001".
inline std::string groupText(const tRecordedPackage& package)
{
    return net::transAddr(package.group.ip) + ":" + std::to_string(package.group.port);
}

// A record taken apart; one that is no whole package fails the test.
inline tRecordedPackage packageOf(const tSegment& record)
{
    constexpr std::size_t cHead = sizeof(tRadarMsgPackage), cEndMarker = 8;
    const std::string& bytes = record.bytes;
    if (bytes.size() < cHead + cEndMarker)
    {
        ADD_FAILURE() << "a record of " << bytes.size() << " bytes is no package";
        return {};
    }
    EXPECT_EQ(bytes.substr(0, 8) + bytes.substr(bytes.size() - cEndMarker), "QuorvaleZQ_Radar");
    tRadarMsgPackage head;
    std::memcpy(&head, bytes.data(), cHead);
    return {head.msgInfo,      head.packCnt, {head.udpAddr, head.udpPort},
            head.timestamp_ms, head.msgLen,  bytes.substr(cHead, bytes.size() - cHead - cEndMarker),
            record.time};
}

// The packages of every file below `folder`, in the order of the files' names.
inline std::vector<tRecordedPackage> recordedPackages(const std::string& folder, const std::string& suffix = ".data")
{
    std::vector<tRecordedPackage> all;
    for (const tSegment& record : segmentsBelow(folder, suffix))
        all.push_back(packageOf(record));
    return all;
}

#endif
