// recordedPackages: what a recorder left below a folder, package by package.
#ifndef KESTOVA_TESTS_RECORDEDPACKAGES_H
#define KESTOVA_TESTS_RECORDEDPACKAGES_H

#include <cstdint>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/netaddress.h"

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

inline std::set<std::string> dataFilesBelow(const std::string& folder, const std::string& suffix = ".data")
{
    std::set<std::string> files;
    storage::tDataStorageIO::GetFileFolderInDir(folder + "/", files, true, suffix);
    return files;
}

// A record taken apart; one that is no whole package fails the test.
inline tRecordedPackage packageOf(const std::string& bytes, std::uint64_t timeMs)
{
    constexpr std::size_t cHead = sizeof(tRadarMsgPackage);
    constexpr std::size_t cEndMarker = 8;
    tRecordedPackage package{};
    package.timeMs = timeMs;
    if (bytes.size() < cHead + cEndMarker)
    {
        ADD_FAILURE() << "a record of " << bytes.size() << " bytes is no package";
        return package;
    }
    EXPECT_EQ(bytes.substr(0, 8) + bytes.substr(bytes.size() - cEndMarker), "QuorvaleZQ_Radar");
    const auto& head = *reinterpret_cast<const tRadarMsgPackage*>(bytes.data());
    package.msgInfo = head.msgInfo;
    package.packCnt = head.packCnt;
    package.group = {head.udpAddr, head.udpPort};
    package.timestamp_ms = head.timestamp_ms;
    package.msgLen = head.msgLen;
    package.payload = bytes.substr(cHead, bytes.size() - cHead - cEndMarker);
    return package;
}

// One file's packages in the order of recording.
inline std::vector<tRecordedPackage> packagesOf(const std::string& path)
{
    std::vector<tRecordedPackage> packages;
    storage::tDataFile file;
    std::string error;
    EXPECT_TRUE(file.open(path, &error)) << error;
    EXPECT_EQ(file.damagedCount(), 0u);
    for (std::size_t i = 0; i < file.recordCount(); ++i)
    {
        std::string bytes;
        EXPECT_TRUE(file.read(i, bytes));
        packages.push_back(packageOf(bytes, file.record(i).timeMs));
    }
    return packages;
}

// The packages of every file below `folder`, in the order of the files' names.
inline std::vector<tRecordedPackage> recordedPackages(const std::string& folder, const std::string& suffix = ".data")
{
    std::vector<tRecordedPackage> all;
    for (const std::string& file : dataFilesBelow(folder, suffix))
        for (const tRecordedPackage& package : packagesOf(file))
            all.push_back(package);
    return all;
}

#endif
