// Plays a recording onto the network and, when it has ended, keeps the radar picture turning for some seconds: the last
// revolution is sent again every 2 s, so that displays do not go dark.
//
//     replayer PATH LOCAL-IP SECONDS
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <iostream>
#include <vector>

#include "KestovaStorage/radardatareplayer.h"

namespace
{
// Called on the replay thread.
class tReplayObserver : public Kestova::iRadarDataReplayObserver
{
public:
    void UpdateReplayStatus(tReplayStatus status) override
    {
        if (status == storage::eReplayEnded && !m_ended.exchange(true))
            ended.set_value();
    }
    void UpdateDataTimeSpan(tTimes_ms begin, tTimes_ms end) override { std::cout << end - begin << " ms\n"; }
    void UpdateFileName(std::string) override {}
    void UpdateReplayData(tTimes_ms, tTimes_ms, tMsgType, tReadWriteType, double, const char*, int, const char*,
                          int len) override
    {
        bytes += static_cast<unsigned long>(len);
    }

    std::promise<void> ended;
    std::atomic<unsigned long> bytes{0};

private:
    std::atomic<bool> m_ended{false};
};

// Finds the spokes of kestova simulate: 5A A5 in front, the azimuth as two bytes at offset 4. A real radar's differ.
class tSpokeFinder : public Kestova::iRadarReplayModifyObserver
{
    void UpdateReplayDataModify(tTimes_ms, tTimes_ms, tMsgType, tReadWriteType, double, const char*, int, char*,
                                int) override
    {}
    void UpdateReplayAddrModify(uint32_t*, uint16_t*) override {}
    bool CheckIfNeededCircleLoop(tMsgType, tReadWriteType rwType, const char*, int, char* data, int len, int& loop,
                                 int& azimuth) override
    {
        if (rwType != eImageStream || len < 6 || std::memcmp(data, "\x5A\xA5", 2) != 0)
            return false;
        loop = 0;  // one radar
        azimuth = static_cast<unsigned char>(data[4]) | static_cast<unsigned char>(data[5]) << 8;
        return true;
    }
};
}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
        return std::cerr << "usage: replayer PATH LOCAL-IP SECONDS\n", 2;

    const std::vector<eReadWriteType> kinds = {eImageStream, eImageState, eArpaStream, eArpaState,
                                               eAisDev,      eGpsDev,     eDepthDev,   eHeadingDev};
    tReplayObserver observer;
    tSpokeFinder finder;
    Kestova::tRadarDataReplayer replayer(kinds.data(), static_cast<int>(kinds.size()), true, argv[2], ".data");
    replayer.SetReplayModifyObserver(&finder);
    replayer.OpenReadDataFileorFolder(argv[1], &observer);
    observer.ended.get_future().wait();
    std::cout << replayer.GetSentCnt() << " datagrams sent, " << observer.bytes << " bytes\n";

    replayer.CircleLoop(true);
    std::promise<void>().get_future().wait_for(std::chrono::seconds(std::atoi(argv[3])));
    replayer.CircleLoop(false);
    return replayer.GetSendRefusedCnt() == 0 ? 0 : 1;  // the destructor of the replayer ends its threads
}
