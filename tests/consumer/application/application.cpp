// An application as a customer builds it, in the old C++ of a display on board: records three segments below the
// folder given, replays them, and compares. Uses each of the three libraries.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include <KestovaStorage/datastorageio.h>
#include <KestovaUtils/timeparser.h>
#include <UdpSocket/udpsocket.h>

class tCollector : public storage::iDataReadReplayObserver
{
public:
    void UpdateReplayStatus(uint8_t status) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ended = m_ended || status == storage::eReplayEnded;
        m_changed.notify_all();
    }
    void UpdateDataTimeSpan(uint64_t, uint64_t) override {}
    void UpdateReplayData(uint64_t, double, const char* data, unsigned int len, std::string) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_segments.push_back(std::string(data, len));
    }
    std::vector<std::string> waitForAll()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(20), [this] { return m_ended; });
        return m_segments;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_segments;  // guarded by m_mutex
    bool m_ended = false;                 // guarded by m_mutex
};

static std::string record(storage::tDataStorageIO& io, const std::vector<std::string>& segments)
{
    const tTimes_ms now = utils::time::tTimeParser::GetCurrentTime_ms();
    if (!io.CreateNewWritingFile(now, "consumer", false))
        return std::string();
    const std::string path = io.GetCurrentWriteDataFileName();
    for (size_t i = 0; i < segments.size(); ++i)
        io.WriteData(segments[i].data(), segments[i].size(), now + i);
    const bool written = io.WaitWriteIdle(10000);
    io.FinishWrite();
    return written ? path : std::string();
}

int main(int argc, char** argv)
{
    if (argc != 2 || net::transAddr(net::transAddr("239.17.0.1")) != "239.17.0.1")
        return 2;
    const std::vector<std::string> segments = {"first", std::string("with\0nul", 8), "last"};
    tCollector collector;
    storage::tDataStorageIO io(argv[1], ".data");
    const std::string path = record(io, segments);
    io.OpenReadDataFileorFolder(path, &collector);
    const std::vector<std::string> replayed = collector.waitForAll();
    io.CloseReadingFile();
    std::printf("replayed %zu of %zu segments\n", replayed.size(), segments.size());
    return replayed == segments ? 0 : 1;
}
