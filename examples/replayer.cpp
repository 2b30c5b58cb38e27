// Plays a data file, or all data files below a folder, and says what was in it, stream by stream. SPEED is 1 for the
// recorded pace, up to 10 for faster, below 1 for slower.
//
//     replayer PATH [SPEED]
#include <array>
#include <cstdlib>
#include <cstring>
#include <future>
#include <iostream>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/radarmsgpackage.h"

namespace
{
class tStreamCounter : public storage::iDataReadReplayObserver
{
public:
    void UpdateDataTimeSpan(uint64_t firstTimeMs, uint64_t lastTimeMs) override
    {
        std::cout << "time span " << lastTimeMs - firstTimeMs << " ms\n";
    }

    // On the replay thread, one call at a time. What the recorder wrote are packages; anything shorter is none.
    void UpdateReplayData(uint64_t, double, const char* data, unsigned int len, std::string) override
    {
        tRadarMsgPackage head;
        if (len < sizeof(head))
            return;
        std::memcpy(&head, data, sizeof(head));
        tCount& count = m_counts[head.msgInfo.rwType];
        ++count.datagrams;
        count.bytes += head.msgLen;
    }

    void UpdateReplayStatus(uint8_t status) override
    {
        if (status == storage::eReplayEnded)
            m_ended.set_value();
    }

    void waitForEnd() { m_ended.get_future().wait(); }

    bool print() const  // false where there was nothing
    {
        std::uint64_t all = 0;
        for (std::size_t kind = 0; kind < m_counts.size(); all += m_counts[kind++].datagrams)
            if (m_counts[kind].datagrams != 0)
                std::cout << "stream " << kind << ' ' << m_counts[kind].datagrams << " datagrams "
                          << m_counts[kind].bytes << " bytes\n";
        return all != 0;
    }

private:
    struct tCount
    {
        std::uint64_t datagrams = 0, bytes = 0;
    };
    std::array<tCount, 256> m_counts;
    std::promise<void> m_ended;
};
}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return std::cerr << "usage: replayer PATH [SPEED]\n", 2;

    tStreamCounter counter;
    storage::tDataStorageIO io("", ".data");
    io.OpenReadDataFileorFolder(argv[1], &counter);
    io.FastSlowForward(argc > 2 ? std::atof(argv[2]) : 1.0);  // opening sets the recorded pace
    counter.waitForEnd();
    io.CloseReadingFile();  // no call comes any more
    return counter.print() ? 0 : 1;
}
