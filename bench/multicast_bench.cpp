// How many datagrams are lost between the network and the file, beside dumpcap on the same machine.
//
//   multicast_bench [SECONDS]
//
// A child process sends datagrams of 542 bytes to a multicast group on 127.0.0.1, at rising rates and finally as fast
// as it can, SECONDS (3) each. In turn, at each rate, they are received by Kestova::tRadarDataSaver, which records them
// into a file, and by `dumpcap -w` if it is installed. Each rate is run five times; the table shows medians of what
// was sent, and of what either lost. For Kestova sent = in the file + counted as lost must hold exactly, else the
// program fails. Needs the rights to capture for dumpcap (root).
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/wait.h>
#include <thread>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/radardatasaver.h"
#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/udpsocket.h"
#include "bench/measure.h"

namespace
{
using namespace std::chrono_literals;
using bench::tClock;

constexpr int cRuns = 5;
constexpr int cDatagramLen = 542;
constexpr int cBatch = 16;
constexpr char cGroup[] = "239.17.99.1";
constexpr std::uint64_t cRates[] = {10'000, 20'000, 50'000, 100'000, 150'000, 200'000, 0};  // 0: as fast as it can

NetAddress group()
{
    return {net::transAddr(cGroup), net::HtoNs(static_cast<std::uint16_t>(20'000 + ::getppid() % 20'000))};
}

// The child: sends at a rate for some seconds and reports how many it sent.
[[noreturn]] void send(std::uint64_t rate, double seconds, const NetAddress& to, int report)
{
    net::UdpSender sender(to, net::transAddr("127.0.0.1"), 0);
    const std::string payload(cDatagramLen, 'p');
    const std::vector<net::tUdpDatagram> batch(cBatch, {payload.data(), cDatagramLen});
    std::uint64_t sent = 0;
    const auto start = tClock::now();
    while (bench::secondsSince(start) < seconds)
    {
        if (rate != 0)
            std::this_thread::sleep_until(start + sent * 1'000'000'000ns / static_cast<long>(rate));
        sent += static_cast<std::uint64_t>(sender.sendBatch(batch.data(), cBatch));
    }
    const ssize_t written = ::write(report, &sent, sizeof sent);
    ::_exit(written == sizeof sent ? 0 : 1);
}

std::uint64_t sendFromChild(std::uint64_t rate, double seconds, const NetAddress& to)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        std::exit(1);
    const pid_t child = ::fork();
    if (child == 0)
        send(rate, seconds, to, ends[1]);
    ::close(ends[1]);
    std::uint64_t sent = 0;
    const bool reported = ::read(ends[0], &sent, sizeof sent) == sizeof sent;
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    if (!reported)
        std::exit(1);
    return sent;
}

struct tOutcome
{
    double sent, lost;
};

std::uint64_t datagramsIn(const std::string& root)
{
    std::uint64_t count = 0;
    std::set<std::string> files;
    storage::tDataStorageIO::GetFileFolderInDir(root, files, true, ".data");
    for (const std::string& path : files)
    {
        storage::tDataFile file;
        file.open(path);
        for (std::size_t i = 0; i < file.recordCount(); ++i)
            count += file.record(i).len == cDatagramLen + 41 ? 1 : 0;  // service queries are shorter
    }
    return count;
}

tOutcome record(std::uint64_t rate, double seconds, const std::string& root, const NetAddress& to)
{
    constexpr eReadWriteType cTypes[] = {eImageStream};
    RadarAddress radar{};
    radar.setStreamAddress(eImageStream, to);
    MultiRadarClient::getInstance()->setAddress("bench", 0, radar);
    Kestova::tRadarDataSaver saver(cTypes, 1, root, ".data", "");
    if (!saver.connect("bench", 0, false))
        std::exit(1);
    Kestova::tGroupCounters counters{};
    while (saver.GetGroupCounters(&counters, 1) == 0 || !counters.joined)
        std::this_thread::sleep_for(1ms);
    const std::uint64_t sent = sendFromChild(rate, seconds, to);
    std::uint64_t before = 0;
    do  // until the socket is drained
    {
        before = counters.datagrams;
        std::this_thread::sleep_for(50ms);
        saver.GetGroupCounters(&counters, 1);
    } while (counters.datagrams != before);
    saver.WaitWriteIdle(10'000);
    saver.disconnect();
    const std::uint64_t lost = counters.kernelDropped + saver.GetWriteLostCnt();

    const std::uint64_t inFile = datagramsIn(root);
    std::filesystem::remove_all(root);
    if (inFile + lost != sent)
    {
        std::fprintf(stderr, "sent %lu, in the file %lu, counted as lost %lu\n", sent, inFile, lost);
        std::exit(1);
    }
    return {static_cast<double>(sent), static_cast<double>(lost)};
}

// dumpcap ends with "Packets received/dropped on interface 'lo': N/M ...".
std::uint64_t dumpcapReceived(const std::string& log)
{
    std::ifstream in(log);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::size_t line = text.rfind("received/dropped on interface");
    const std::size_t number = line == std::string::npos ? line : text.find("': ", line);
    return number == std::string::npos ? 0 : std::strtoull(text.c_str() + number + 3, nullptr, 10);
}

tOutcome capture(std::uint64_t rate, double seconds, const std::string& folder, const NetAddress& to)
{
    const std::string log = folder + "dumpcap.log";
    const std::string filter = "udp dst port " + std::to_string(net::NtoHs(to.port));
    const std::string file = folder + "dumpcap.pcapng";
    const pid_t child = ::fork();
    if (child == 0)
    {
        const int err = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ::dup2(err, STDERR_FILENO);
        ::execlp("dumpcap", "dumpcap", "-q", "-i", "lo", "-f", filter.c_str(), "-w", file.c_str(), nullptr);
        ::_exit(127);
    }
    while (!std::filesystem::exists(file))
    {
        if (::waitpid(child, nullptr, WNOHANG) == child)
            return {0, -1};
        std::this_thread::sleep_for(10ms);
    }
    std::this_thread::sleep_for(500ms);
    const std::uint64_t sent = sendFromChild(rate, seconds, to);
    std::this_thread::sleep_for(1s);
    ::kill(child, SIGINT);
    ::waitpid(child, nullptr, 0);
    const std::uint64_t received = dumpcapReceived(log);
    std::filesystem::remove(file);
    return {static_cast<double>(sent), static_cast<double>(sent) - static_cast<double>(received)};
}

void printLine(const char* who, const std::vector<tOutcome>& outcomes, double seconds)
{
    std::vector<double> sent, lost;
    for (const tOutcome& outcome : outcomes)
    {
        sent.push_back(outcome.sent / seconds);
        lost.push_back(outcome.lost);
    }
    if (outcomes.front().lost < 0)
        std::fprintf(stderr, "  %-8s not installed, or may not capture\n", who);
    else
        std::fprintf(stderr, "  %-8s %9.0f datagrams/s sent; lost %8.0f (%.0f to %.0f)\n", who,
                     bench::figuresOf(sent).median, bench::figuresOf(lost).median, bench::figuresOf(lost).low,
                     bench::figuresOf(lost).high);
}
}  // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    bench::announce(
        "multicast_bench: 542-byte datagrams from loopback multicast to a file (results on standard error)");
    // The library reports its progress on standard output.
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        return 1;
    const bench::tScratch scratch(nullptr);
    MultiRadarClient::getInstance()->setLocalInterface("127.0.0.1");
    const NetAddress to = group();
    for (const std::uint64_t rate : cRates)
    {
        std::vector<tOutcome> mine, peer;
        for (int run = 0; run < cRuns; ++run)
        {
            mine.push_back(record(rate, seconds, scratch.path() + "root/", to));
            peer.push_back(capture(rate, seconds, scratch.path(), to));
        }
        printLine("kestova", mine, seconds);
        printLine("dumpcap", peer, seconds);
    }
    return 0;
}
