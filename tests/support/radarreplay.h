// Radar records of any kind, and observers of a radar replay that keep its reports.
#ifndef KESTOVA_TESTS_RADARREPLAY_H
#define KESTOVA_TESTS_RADARREPLAY_H

#include <functional>
#include <string>

#include "KestovaStorage/radardatareplayer.h"
#include "UdpSocket/udpsocket.h"
#include "support/radarpackages.h"
#include "support/replaylog.h"

// A whole package; its time stamp is 1'700'000'000'123.
inline std::string radarRecord(const tUdpMsgInfo& info, const NetAddress& group, const std::string& payload)
{
    return makePackage(0, payload)
        .replace(8, 5, std::string(reinterpret_cast<const char*>(&info), 5))
        .replace(17, 4, littleEndian(group.ip, 4))
        .replace(21, 2, littleEndian(net::NtoHs(group.port), 2));
}

inline std::string counterText(const std::string& file, int userCtrl, int multiService)
{
    return file + "\r\nUser Ctrl Cnt: " + std::to_string(userCtrl) +
           "\r\nMulti Service Cnt: " + std::to_string(multiService);
}

// A record's word in the log is its payload; everything else about it stands in its `file`.
struct tRadarReplayLog : Kestova::iRadarDataReplayObserver, tReplayLog
{
    void UpdateReplayStatus(tReplayStatus status) override { tReplayLog::UpdateReplayStatus(status); }
    void UpdateDataTimeSpan(tTimes_ms begin, tTimes_ms end) override { tReplayLog::UpdateDataTimeSpan(begin, end); }
    void UpdateFileName(std::string text) override { tell(text); }
    void UpdateReplayData(tTimes_ms replayTime, tTimes_ms packageTime, tMsgType type, tReadWriteType rwType,
                          double progress, const char* group, int port, const char* data, int len) override
    {
        const std::string about = std::to_string(replayTime) + " " + std::to_string(packageTime) + " " +
                                  std::to_string(type) + " " + std::to_string(rwType) + " " + std::to_string(progress) +
                                  " " + group + ":" + std::to_string(port);
        tReplayLog::UpdateReplayData(replayTime, progress, data, static_cast<unsigned int>(len), about);
    }
    using tReplayLog::UpdateReplayData;
};

// A modify observer made of functions. What it is asked first is kept like a report.
struct tReplayEditor : Kestova::iRadarReplayModifyObserver
{
    tRadarReplayLog log;
    std::function<void(char*, int)> edit = [](char*, int) {};
    std::function<bool(char*, int&, int&)> circle = [](char*, int&, int&) { return false; };
    std::function<void(uint32_t*, uint16_t*)> redirect = [](uint32_t*, uint16_t*) {};

    void UpdateReplayDataModify(tTimes_ms replayTime, tTimes_ms packageTime, tMsgType type, tReadWriteType rwType,
                                double progress, const char* group, int port, char* data, int len) override
    {
        log.UpdateReplayData(replayTime, packageTime, type, rwType, progress, group, port, data, len);
        edit(data, len);
    }
    bool CheckIfNeededCircleLoop(tMsgType type, tReadWriteType rwType, const char* group, int port, char* data, int len,
                                 int& loopNumber, int& azimuth) override
    {
        log.UpdateReplayData(0, 0, type, rwType, loopNumber + azimuth, group, port, data, len);
        return circle(data, loopNumber, azimuth);
    }
    void UpdateReplayAddrModify(uint32_t* ip, uint16_t* port) override { redirect(ip, port); }
};

#endif
