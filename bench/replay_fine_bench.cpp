// How far a replay onto the network is behind the true arrival of what it replays, beside a loop on absolute deadlines.
//
//   replay_fine_bench [RUNS]
//
// 20 s of datagrams of 542 bytes, one every 0.5 ms, go to a group on the loopback interface and are recorded with fine
// times. Then, in turn, RUNS (3) times each, two programs of their own replay them: Kestova::tRadarDataReplayer the
// recording, and a loop, which sleeps until the absolute deadline of each datagram and sends it, the times of arrival,
// both with the same sender. The kernel stamps the arrival of each datagram then and now; a datagram is as far behind
// as its stamps differ, against the earliest one of the run. Drift compares the medians of the first and the last
// second. CPU is that of the replaying program, its start included. 20 s and 40 s a run. Run it in a network namespace
// of its own if others use the network of this machine: unshare -n replay_fine_bench
#include <atomic>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <net/if.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/packagerecorder.h"
#include "KestovaStorage/radardatareplayer.h"
#include "UdpSocket/transport.h"
#include "bench/measure.h"

namespace
{
using namespace std::chrono_literals;
using bench::tClock;
using tStamps = std::vector<std::int64_t>;  // ns, one a datagram

constexpr std::uint32_t cDatagrams = 40'000;
constexpr auto cGap = 500us;
constexpr std::size_t cLen = 542;
constexpr int cReceiveBuffer = 16 << 20;
constexpr char cLocal[] = "127.0.0.1";

NetAddress group()
{
    return {net::transAddr("239.17.98.2"), net::HtoNs(6002)};
}

void require(bool done, const char* what)
{
    if (done)
        return;
    std::perror(what);
    std::exit(1);
}

// Sends datagram after datagram at `times`, ns from the first one.
template <typename tTimeOf>
void sendOnDeadlines(tTimeOf timeOf)
{
    ::prctl(PR_SET_TIMERSLACK, 1ul);
    net::UdpSender sender(group(), net::transAddr(cLocal), 0);
    std::string payload(cLen, 's');
    const auto start = tClock::now() + 10ms;
    for (std::uint32_t i = 0; i < cDatagrams; ++i)
    {
        std::this_thread::sleep_until(start + std::chrono::nanoseconds(timeOf(i)));
        std::memcpy(payload.data(), &i, sizeof i);
        require(sender.sendData(payload.data(), cLen), "send");
    }
}

// Keeps when the kernel received each datagram.
class tListener : public net::iDatagramListener
{
public:
    void OnDatagram(const net::tReceivedDatagram& datagram) override
    {
        std::uint32_t number = 0;
        std::memcpy(&number, datagram.data, sizeof number);
        if (number < cDatagrams)
            stamps[number] = static_cast<std::int64_t>(datagram.arrived_ns);
        ++received;
    }
    bool waitForAll() const
    {
        for (int i = 0; i < 200 && received < cDatagrams; ++i)
            std::this_thread::sleep_for(10ms);
        return received == cDatagrams;
    }
    tStamps stamps = tStamps(cDatagrams);
    std::atomic<std::uint32_t> received{0};
};

class tRecordingListener final : public tListener
{
public:
    explicit tRecordingListener(storage::tDataStorageIO& storage) : m_recorder(storage) {}
    void OnDatagram(const net::tReceivedDatagram& datagram) override
    {
        tListener::OnDatagram(datagram);
        m_recorder.RecordFine({1, 2, eReadType, eImageStream, 0}, datagram.group, datagram.data, datagram.len,
                              datagram.arrived_ns / 1000);
    }

private:
    Kestova::tPackageRecorder m_recorder;
};

// Records what a sender sends; returns when it arrived.
tStamps record(const std::string& folder)
{
    storage::tDataStorageIO storage("", ".data");
    storage.SetFineTimes(true);
    require(storage.CreateNewWritingFile(folder, "", false), "recording");
    tRecordingListener listener(storage);
    const auto sources =
        net::defaultTransport().openSources({{&listener, group()}}, net::transAddr(cLocal), cReceiveBuffer);
    std::this_thread::sleep_for(100ms);  // the kernel stamps by then
    sendOnDeadlines([](std::uint32_t i) { return i * std::chrono::nanoseconds(cGap).count(); });
    require(listener.waitForAll() && storage.WaitWriteIdle(10'000), "recording");
    return listener.stamps;
}

// ---- the programs that replay ----

class tEnd final : public Kestova::iRadarDataReplayObserver
{
public:
    void UpdateReplayStatus(tReplayStatus status) override
    {
        if (status == storage::eReplayEnded)
        {
            m_ended = true;
            m_ended.notify_all();
        }
    }
    void UpdateDataTimeSpan(tTimes_ms, tTimes_ms) override {}
    void UpdateFileName(std::string) override {}
    void UpdateReplayData(tTimes_ms, tTimes_ms, tMsgType, tReadWriteType, double, const char*, int, const char*,
                          int) override
    {}
    void wait() const { m_ended.wait(false); }

private:
    std::atomic<bool> m_ended{false};
};

int replay(const std::string& folder)
{
    const eReadWriteType kind = eImageStream;
    tEnd end;
    Kestova::tRadarDataReplayer replayer(&kind, 1, true, cLocal, ".data");
    replayer.OpenReadDataFileorFolder(folder, &end);
    end.wait();
    return replayer.GetSentCnt() == cDatagrams ? 0 : 1;
}

int loop(const std::string& path)
{
    tStamps stamps(cDatagrams);
    std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(stamps.data()), sizeof stamps[0] * cDatagrams);
    sendOnDeadlines([&](std::uint32_t i) { return stamps[i] - stamps[0]; });
    return 0;
}

// ---- measuring ----

struct tColumn
{
    std::vector<double> p50, p99, worst, drift, cpu;

    // Runs this program as `what` with `path` and takes what arrives.
    void run(const tStamps& recorded, std::string what, std::string path)
    {
        tListener listener;
        const auto sources =
            net::defaultTransport().openSources({{&listener, group()}}, net::transAddr(cLocal), cReceiveBuffer);
        std::this_thread::sleep_for(100ms);
        std::string self = "/proc/self/exe";
        char* const argv[] = {self.data(), what.data(), path.data(), nullptr};
        const auto start = tClock::now();
        pid_t child = -1;
        int status = 0;
        rusage usage{};
        require(::posix_spawn(&child, self.c_str(), nullptr, nullptr, argv, environ) == 0, "replay");
        require(::wait4(child, &status, 0, &usage) == child && status == 0 && listener.waitForAll(), "replay");
        const auto seconds = [](const timeval& t) {
            return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
        };
        cpu.push_back((seconds(usage.ru_utime) + seconds(usage.ru_stime)) / bench::secondsSince(start) * 100);
        take(recorded, listener.stamps);
    }
    void show(const char* name) const
    {
        const auto a = bench::figuresOf(p50), b = bench::figuresOf(p99), c = bench::figuresOf(drift),
                   d = bench::figuresOf(cpu);
        std::printf(
            "  %-8s behind p50 %.3f ms (%.3f to %.3f), p99 %.3f ms (%.3f to %.3f), worst %.2f ms, drift %.5f %% "
            "(%.5f to %.5f), CPU %.1f %% (%.1f to %.1f)\n",
            name, a.median, a.low, a.high, b.median, b.low, b.high, bench::figuresOf(worst).median, c.median, c.low,
            c.high, d.median, d.low, d.high);
    }

private:
    void take(const tStamps& recorded, const tStamps& replayed)
    {
        std::vector<double> behind;
        for (std::uint32_t i = 0; i < cDatagrams; ++i)
            behind.push_back(static_cast<double>(replayed[i] - recorded[i]) / 1e6);
        const double earliest = *std::min_element(behind.begin(), behind.end());
        for (double& ms : behind)
            ms -= earliest;
        std::vector<double> first(behind.begin(), behind.begin() + 2000), last(behind.end() - 2000, behind.end());
        const double span = static_cast<double>(recorded.back() - recorded.front()) / 1e6;
        drift.push_back(std::fabs(bench::percentile(last, 0.5) - bench::percentile(first, 0.5)) / span * 100);
        p50.push_back(bench::percentile(behind, 0.5));
        p99.push_back(bench::percentile(behind, 0.99));
        worst.push_back(*std::max_element(behind.begin(), behind.end()));
    }
};

void loopbackUp()
{
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    request.ifr_flags = IFF_UP;
    ::ioctl(socket, SIOCSIFFLAGS, &request);  // without the right to do so, it is up already
    ::close(socket);
}
}  // namespace

int main(int argc, char** argv)
{
    if (argc == 3)
        return std::strcmp(argv[1], "replay") == 0 ? replay(argv[2]) : loop(argv[2]);
    bench::announce("replay_fine_bench: 20 s of datagrams every 0.5 ms, recorded and replayed onto the network");
    loopbackUp();
    const bench::tScratch scratch(nullptr);
    const tStamps recorded = record(scratch.path());
    const std::string times = scratch.path() + "times";
    std::ofstream(times, std::ios::binary)
        .write(reinterpret_cast<const char*>(recorded.data()), sizeof recorded[0] * cDatagrams);
    tColumn ours, theirs;
    for (int run = 0; run < (argc > 1 ? std::atoi(argv[1]) : 3); ++run)
    {
        ours.run(recorded, "replay", scratch.path());
        theirs.run(recorded, "loop", times);
    }
    ours.show("kestova");
    theirs.show("loop");
    std::printf("  wanted: p50 0.1 ms, p99 0.3 ms, drift 0.001 %%, CPU 8 %%\n");
    return 0;
}
