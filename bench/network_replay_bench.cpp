// Replaying onto the network at ten times the pace, beside tcpreplay.
//
//   network_replay_bench [RUNS]
//
// 50 s of datagrams of 542 bytes, 10,000 a second, as a recording and as a capture. In turn, RUNS (5) times each: the
// recording is played by Kestova::tRadarDataReplayer at speed 10, and the capture by `tcpreplay --multiplier=10`, onto
// a group on the loopback interface, to which another process listens with a receive buffer of 4 MiB. Shown are the
// losses of that listener, the pace from its first datagram to its last against the recorded one, and the CPU time a
// record of the sender. Run it as root in a network namespace of its own: unshare -n network_replay_bench
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>

#include "KestovaStorage/packagebuilderandsplitter.h"
#include "KestovaStorage/radardatareplayer.h"
#include "UdpSocket/udpsocket.h"
#include "bench/measure.h"

namespace
{
using namespace std::chrono_literals;
using bench::tClock;

constexpr std::uint32_t cRecords = 500'000;
constexpr std::uint32_t cPerMs = 10;
constexpr std::size_t cLen = 542;
constexpr std::uint64_t cFirstTime = 1'700'000'000'000;
constexpr double cRecordedSeconds = (cRecords / cPerMs - 1) / 1000.0;
constexpr double cSpeed = 10.0;
constexpr int cListenBuffer = 4 << 20;
constexpr char cGroup[] = "239.17.98.1";
constexpr std::uint16_t cPort = 6001;

double seconds(const timeval& t)
{
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
}

double cpuOf(int who)
{
    rusage usage{};
    ::getrusage(who, &usage);
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void require(bool done, const char* what)
{
    if (done)
        return;
    std::perror(what);
    std::exit(1);
}

std::string payloadOf(std::uint32_t number)
{
    std::string payload(cLen, 's');
    std::memcpy(payload.data(), &number, sizeof number);
    return payload;
}

// ---- the data ----

class tPackageWriter final : public iPackageObserver
{
public:
    explicit tPackageWriter(storage::tDataStorageIO& storage) : m_storage(storage) {}
    void UpdateSplittedPackage(const tRadarMsgPackage*, unsigned int, int) override {}
    void UpdateBuildedPackage(const char* package, unsigned int size, int, unsigned long time) override
    {
        m_storage.WriteData(package, size, time);
    }

private:
    storage::tDataStorageIO& m_storage;
};

void makeRecording(const std::string& folder)
{
    storage::tDataStorageIO storage("", ".data");
    require(storage.CreateNewWritingFile(folder, "", false), "recording");
    tPackageWriter writer(storage);
    tPackageBuilderAndSplitter builder;
    builder.AddPackageObserer(&writer);
    for (std::uint32_t i = 0; i < cRecords; ++i)
        builder.BuildPackage({1, 2, eReadType, eImageStream, 0}, cGroup, cPort, payloadOf(i).data(), cLen,
                             cFirstTime + i / cPerMs);
    require(builder.WaitBuildIdle(60'000) && storage.WaitWriteIdle(60'000), "recording");
}

void put16(std::string& to, std::uint32_t value)  // network order
{
    to += static_cast<char>(value >> 8);
    to += static_cast<char>(value);
}

std::uint16_t headerSum(const std::string& header)
{
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < header.size(); i += 2)
        sum += static_cast<std::uint32_t>(static_cast<unsigned char>(header[i]) << 8 |
                                          static_cast<unsigned char>(header[i + 1]));
    while (sum > 0xFFFF)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<std::uint16_t>(~sum);
}

// Ethernet, IP and UDP before every payload of the capture. The source is no address of this machine: the kernel drops
// received frames with one.
std::string headers()
{
    const std::uint32_t group = net::transAddr(cGroup), from = net::transAddr("192.0.2.1");
    std::string ip("\x45\x00", 2);
    put16(ip, 20 + 8 + cLen);
    ip += std::string("\x00\x00\x40\x00\x01\x11\x00\x00", 8);  // no fragments, TTL 1, UDP, checksum to come
    ip += std::string(reinterpret_cast<const char*>(&from), 4) + std::string(reinterpret_cast<const char*>(&group), 4);
    std::string sum;
    put16(sum, headerSum(ip));
    ip.replace(10, 2, sum);
    std::string udp;
    for (const std::uint32_t field : {6000u, std::uint32_t{cPort}, static_cast<std::uint32_t>(8 + cLen), 0u})
        put16(udp, field);
    return std::string("\x01\x00\x5E\x11\x62\x01\x00\x00\x00\x00\x00\x00\x08\x00", 14) + ip + udp;
}

void makeCapture(const std::string& path)
{
    std::ofstream out(path, std::ios::binary);
    const std::array<std::uint32_t, 6> head{0xA1B2C3D4, 2 | 4 << 16, 0, 0, 65535, 1};
    out.write(reinterpret_cast<const char*>(head.data()), sizeof head);
    const std::string before = headers();
    for (std::uint32_t i = 0; i < cRecords; ++i)
    {
        const std::uint64_t ms = cFirstTime + i / cPerMs;
        const auto len = static_cast<std::uint32_t>(before.size() + cLen);
        const std::array<std::uint32_t, 4> record{static_cast<std::uint32_t>(ms / 1000),
                                                  static_cast<std::uint32_t>(ms % 1000 * 1000), len, len};
        out.write(reinterpret_cast<const char*>(record.data()), sizeof record);
        out << before << payloadOf(i);
    }
    require(out.good(), "capture");
}

// ---- the listener ----

struct tReceived
{
    std::uint64_t datagrams, disordered;
    double span;  // seconds from the first to the last
};

class tListener final : public net::iUdpDataListener
{
public:
    void OnUdpGroupDataReceived(const char*, int, const char*, int, const char* data, int) override
    {
        std::uint32_t number = 0;
        std::memcpy(&number, data, sizeof number);
        m_last = tClock::now();
        if (received.datagrams++ == 0)
            m_first = m_last;
        else
            received.disordered += number <= m_number ? 1 : 0;
        m_number = number;
        received.span = std::chrono::duration<double>(m_last - m_first).count();
    }
    tReceived received{};

private:
    tClock::time_point m_first, m_last;
    std::uint32_t m_number = 0;
};

// A process of its own that listens until its standard input ends, and then reports what it received.
class tListenerProcess
{
public:
    tListenerProcess()
    {
        require(::pipe(m_stop) == 0 && ::pipe(m_report) == 0, "pipe");
        m_child = ::fork();
        require(m_child >= 0, "fork");
        if (m_child == 0)
            listen();
        char ready = 0;
        require(::read(m_report[0], &ready, 1) == 1, "listener");
    }
    tReceived finish()
    {
        ::close(m_stop[1]);
        tReceived received{};
        require(::read(m_report[0], &received, sizeof received) == sizeof received, "listener");
        for (const int end : {m_stop[0], m_report[0], m_report[1]})
            ::close(end);
        ::waitpid(m_child, nullptr, 0);
        return received;
    }

private:
    [[noreturn]] void listen()
    {
        ::close(m_stop[1]);
        tListener listener;
        char byte = 0;
        {
            const net::UdpReceiver receiver(&listener, net::transAddr("127.0.0.1"),
                                            {net::transAddr(cGroup), net::HtoNs(cPort)}, cListenBuffer);
            if (!receiver.valid() || ::write(m_report[1], &byte, 1) != 1)
                ::_exit(1);
            while (::read(m_stop[0], &byte, 1) > 0)
                ;
        }
        ::_exit(::write(m_report[1], &listener.received, sizeof listener.received) == sizeof listener.received ? 0 : 1);
    }

    int m_stop[2], m_report[2];
    pid_t m_child = -1;
};

// ---- the senders ----

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

void replay(const std::string& folder)
{
    const eReadWriteType kind = eImageStream;
    tEnd end;
    Kestova::tRadarDataReplayer replayer(&kind, 1, true, "127.0.0.1", ".data");
    replayer.OpenReadDataFileorFolder(folder, &end);
    replayer.FastSlowForward(cSpeed);
    end.wait();
    if (replayer.GetSentCnt() != cRecords)
        std::exit(1);
}

void tcpreplay(const std::string& capture)
{
    const pid_t child = ::fork();
    require(child >= 0, "fork");
    if (child == 0)
    {
        const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(null, STDOUT_FILENO);
        ::dup2(null, STDERR_FILENO);
        ::execlp("tcpreplay", "tcpreplay", "-q", "--multiplier=10", "-i", "lo", capture.c_str(), nullptr);
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    require(status == 0, "tcpreplay (package tcpreplay, as root)");
}

struct tColumn
{
    std::vector<double> lost, disordered, error, cpu;

    template <typename tSend>
    void run(int who, tSend send)
    {
        tListenerProcess listener;
        const double before = cpuOf(who);
        send();
        cpu.push_back((cpuOf(who) - before) / cRecords * 1e6);
        std::this_thread::sleep_for(100ms);  // datagrams on their way
        const tReceived received = listener.finish();
        lost.push_back(static_cast<double>(cRecords - received.datagrams));
        disordered.push_back(static_cast<double>(received.disordered));
        error.push_back(std::fabs(received.span * cSpeed / cRecordedSeconds - 1.0) * 100.0);
    }
    void show(const char* name) const
    {
        const auto l = bench::figuresOf(lost), e = bench::figuresOf(error), c = bench::figuresOf(cpu);
        std::printf("  %-10s lost %.0f (%.0f to %.0f), out of order %.0f, pace error %.3f %% (%.3f to %.3f), "
                    "CPU %.2f us a record (%.2f to %.2f)\n",
                    name, l.median, l.low, l.high, bench::figuresOf(disordered).high, e.median, e.low, e.high, c.median,
                    c.low, c.high);
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
    bench::announce("network_replay_bench: 50 s of 10,000 records a second at ten times the pace");
    loopbackUp();
    const bench::tScratch scratch(nullptr);
    makeRecording(scratch.path());
    const std::string capture = scratch.path() + "peer.pcap";
    makeCapture(capture);
    tColumn ours, theirs;
    for (int run = 0; run < (argc > 1 ? std::atoi(argv[1]) : 5); ++run)
    {
        ours.run(RUSAGE_SELF, [&] { replay(scratch.path()); });
        theirs.run(RUSAGE_CHILDREN, [&] { tcpreplay(capture); });
    }
    ours.show("kestova");
    theirs.show("tcpreplay");
    std::printf("  wanted: nothing lost, pace error 0.1 %%, CPU a record at most 2 x tcpreplay's (here %.2f x)\n",
                bench::figuresOf(ours.cpu).median / bench::figuresOf(theirs.cpu).median);
    return 0;
}
