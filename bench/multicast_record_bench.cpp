// What recording multicast costs, and what is lost, beside dumpcap and tcpdump on the same machine.
//
//   multicast_record_bench [SECONDS [RUNS [KESTOVA]]]
//
// A child process sends datagrams of 542 bytes to multicast groups on 127.0.0.1 for SECONDS (3), at a steady rate or as
// fast as it can. `kestova record --group` (of this build, or the program KESTOVA), `dumpcap -w` and `tcpdump -w`,
// those that are installed, write them to files, in turn, RUNS (5) times. The table shows medians, and the lowest and
// highest in parentheses: CPU time, user and system, of the recording process from the first datagram to 0.3 s after
// the last, in percent of one core for the time of sending, and the share of datagrams that are not in the file. For
// Kestova, sent = in the files + counted as lost must hold exactly, else the program fails. Needs the rights to capture
// for its peers (root).
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <sys/wait.h>
#include <thread>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datastorageio.h"
#include "UdpSocket/udpsocket.h"
#include "bench/measure.h"

namespace
{
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using bench::tClock;

constexpr int cDatagramLen = 542;

struct tCase
{
    int groups;
    std::uint64_t rate;  // of all groups together; 0: as fast as the sender can
};
constexpr tCase cCases[] = {{1, 2'000}, {1, 50'000}, {1, 200'000}, {1, 0}, {16, 200'000}, {64, 50'000}};

int port()
{
    static const int s_port = 20'000 + ::getpid() % 20'000;
    return s_port;
}

std::string groupText(int number)
{
    return "239.17.98." + std::to_string(1 + number);
}

NetAddress group(int number)
{
    return {net::transAddr(groupText(number).c_str()), net::HtoNs(static_cast<std::uint16_t>(port()))};
}

// ---- the sender ----

using tSenders = std::vector<std::unique_ptr<net::UdpSender>>;

// Sends to the groups in turn.
std::uint64_t sendSome(const tSenders& senders, std::uint64_t first, int count)
{
    static const std::string s_payload(cDatagramLen, 'p');
    if (senders.size() == 1)
    {
        const std::vector<net::tUdpDatagram> batch(static_cast<std::size_t>(count), {s_payload.data(), cDatagramLen});
        return static_cast<std::uint64_t>(senders[0]->sendBatch(batch.data(), count));
    }
    std::uint64_t sent = 0;
    for (std::uint64_t i = first; i < first + static_cast<std::uint64_t>(count); ++i)
        sent += senders[i % senders.size()]->sendData(s_payload.data(), cDatagramLen) ? 1 : 0;
    return sent;
}

// The child: reports how many it sent.
[[noreturn]] void send(const tCase& what, double seconds, int report)
{
    tSenders senders;
    for (int i = 0; i < what.groups; ++i)
        senders.push_back(std::make_unique<net::UdpSender>(group(i), net::transAddr("127.0.0.1"), 0));
    const int batch = what.rate == 0 ? 64 : static_cast<int>(std::clamp<std::uint64_t>(what.rate / 10'000, 1, 64));
    std::uint64_t sent = 0, tried = 0;
    const auto start = tClock::now();
    while (bench::secondsSince(start) < seconds)
    {
        if (what.rate != 0)
            std::this_thread::sleep_until(start + tried * 1'000'000'000ns / static_cast<long>(what.rate));
        sent += sendSome(senders, tried, batch);
        tried += static_cast<std::uint64_t>(batch);
    }
    const ssize_t written = ::write(report, &sent, sizeof sent);
    ::_exit(written == sizeof sent ? 0 : 1);
}

std::uint64_t sendFromChild(const tCase& what, double seconds)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        std::exit(1);
    const pid_t child = ::fork();
    if (child == 0)
        send(what, seconds, ends[1]);
    ::close(ends[1]);
    std::uint64_t sent = 0;
    const bool reported = ::read(ends[0], &sent, sizeof sent) == sizeof sent;
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    if (!reported)
        std::exit(1);
    return sent;
}

// ---- the recorders ----

std::string contentOf(const std::string& path)
{
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A program under way, its output in a file.
class tProgram
{
public:
    tProgram(const std::vector<std::string>& arguments, std::string log) : m_log(std::move(log))
    {
        std::vector<char*> words;
        for (const std::string& word : arguments)
            words.push_back(const_cast<char*>(word.c_str()));  // execvp changes none of them
        words.push_back(nullptr);
        m_pid = ::fork();
        if (m_pid != 0)
            return;
        const int out = ::open(m_log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ::dup2(out, STDOUT_FILENO);
        ::dup2(out, STDERR_FILENO);
        ::execvp(words[0], words.data());
        ::_exit(127);
    }
    // Returns false if the program has ended.
    bool waitFor(const std::string& text) const
    {
        while (log().find(text) == std::string::npos)
        {
            if (::waitpid(m_pid, nullptr, WNOHANG) == m_pid)
                return false;
            std::this_thread::sleep_for(10ms);
        }
        std::this_thread::sleep_for(500ms);
        return true;
    }
    double cpuSeconds() const
    {
        clockid_t clock{};
        timespec used{};
        if (::clock_getcpuclockid(m_pid, &clock) != 0 || ::clock_gettime(clock, &used) != 0)
            std::exit(1);
        return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
    }
    void end() const
    {
        ::kill(m_pid, SIGINT);
        ::waitpid(m_pid, nullptr, 0);
    }
    std::string log() const { return contentOf(m_log); }

private:
    const std::string m_log;
    pid_t m_pid = -1;
};

std::uint64_t numberBehind(const std::string& text, const std::string& words)
{
    const std::size_t place = text.rfind(words);
    return place == std::string::npos ? 0 : std::strtoull(text.c_str() + place + words.size(), nullptr, 10);
}

struct tRecorder
{
    std::string name;
    std::function<std::vector<std::string>(const tCase&, const std::string& folder)> arguments;
    std::string ready;  // in its output, once it records
    // The datagrams in its files. `sent` is for a check.
    std::function<std::uint64_t(const std::string& log, const std::string& folder, std::uint64_t sent)> recorded;
};

std::uint64_t inDataFiles(const std::string& log, const std::string& folder, std::uint64_t sent)
{
    std::uint64_t count = 0;
    std::set<std::string> files;
    storage::tDataStorageIO::GetFileFolderInDir(folder, files, true, ".data");
    for (const std::string& path : files)
    {
        storage::tDataFile file;
        file.open(path);
        count += file.recordCount();
    }
    // Of the object, not of its streams, which come first.
    const std::uint64_t lost = numberBehind(log, "not written ") + numberBehind(log, "kernel dropped ");
    if (count + lost == sent)
        return count;
    std::fprintf(stderr, "sent %lu, in the files %lu, counted as lost %lu\n%s\n", sent, count, lost, log.c_str());
    std::exit(1);
}

std::vector<tRecorder> recorders(const std::string& kestova)
{
    const std::string filter = "udp dst port " + std::to_string(port());
    const auto record = [kestova](const tCase& what, const std::string& folder) {
        std::vector<std::string> words{kestova, "record", "--local-ip", "127.0.0.1", "--root", folder};
        for (int i = 0; i < what.groups; ++i)
            words.insert(words.end(), {"--group", groupText(i) + ":" + std::to_string(port())});
        return words;
    };
    const auto dumpcap = [filter](const tCase&, const std::string& folder) {
        return std::vector<std::string>{"dumpcap", "-q", "-i", "lo", "-f", filter, "-w", folder + "peer.pcapng"};
    };
    const auto tcpdump = [filter](const tCase&, const std::string& folder) {
        return std::vector<std::string>{"tcpdump", "-i", "lo", "-n", "-Z", "root", "-w", folder + "peer.pcap", filter};
    };
    // "Packets received/dropped on interface 'Loopback: lo': N/M ..."
    const auto byDumpcap = [](const std::string& log, const std::string&, std::uint64_t) -> std::uint64_t {
        const std::size_t line = log.rfind("received/dropped on interface");
        return line == std::string::npos ? 0 : numberBehind(log.substr(line), "': ");
    };
    const auto byTcpdump = [](const std::string& log, const std::string&, std::uint64_t) -> std::uint64_t {
        const std::size_t end = log.find(" packets captured");
        const std::size_t line = end == std::string::npos ? end : log.rfind('\n', end);
        return line == std::string::npos ? 0 : std::strtoull(log.c_str() + line, nullptr, 10);
    };
    return {{"kestova", record, "recording to", inDataFiles},
            {"dumpcap", dumpcap, "File: ", byDumpcap},
            {"tcpdump", tcpdump, "listening on", byTcpdump}};
}

struct tOutcomes
{
    std::vector<double> cpu, lost, rate;  // percent of a core, percent of what was sent, datagrams a second
};

// Returns false if the recorder cannot be run.
bool measure(const tRecorder& recorder, const tCase& what, double seconds, const bench::tScratch& scratch,
             tOutcomes& outcomes)
{
    const std::string folder = scratch.path() + "files/", log = scratch.path() + "log";
    fs::create_directories(folder);
    const tProgram program(recorder.arguments(what, folder), log);
    if (!program.waitFor(recorder.ready))
        return false;
    const double before = program.cpuSeconds();
    const std::uint64_t sent = sendFromChild(what, seconds);
    std::this_thread::sleep_for(300ms);
    const double used = program.cpuSeconds() - before;
    std::this_thread::sleep_for(700ms);
    program.end();
    const auto all = static_cast<double>(sent);
    const auto recorded = static_cast<double>(recorder.recorded(program.log(), folder, sent));
    fs::remove_all(folder);
    outcomes.cpu.push_back(100 * used / seconds);
    outcomes.lost.push_back(100 * (all - recorded) / all);
    outcomes.rate.push_back(all / seconds);
    return true;
}

void printLine(const tRecorder& recorder, const tOutcomes& outcomes)
{
    const bench::tFigures cpu = bench::figuresOf(outcomes.cpu), lost = bench::figuresOf(outcomes.lost);
    std::printf("  %-8s %5.1f %% of a core (%.1f to %.1f); lost %.2f %% (%.2f to %.2f) of %.0f/s\n",
                recorder.name.c_str(), cpu.median, cpu.low, cpu.high, lost.median, lost.low, lost.high,
                bench::figuresOf(outcomes.rate).median);
    std::fflush(stdout);
}

void runCase(const tCase& what, double seconds, int runs, const std::vector<tRecorder>& all,
             const bench::tScratch& scratch)
{
    const std::string rate = what.rate == 0 ? "as fast as the sender can" : std::to_string(what.rate) + " datagrams/s";
    std::printf("%d group%s, %s\n", what.groups, what.groups == 1 ? "" : "s", rate.c_str());
    std::vector<tOutcomes> outcomes(all.size());
    for (int run = 0; run < runs; ++run)
    {
        for (std::size_t i = 0; i < all.size(); ++i)
            measure(all[i], what, seconds, scratch, outcomes[i]);
    }
    for (std::size_t i = 0; i < all.size(); ++i)
    {
        if (outcomes[i].cpu.empty())
            std::printf("  %-8s not installed, or may not capture\n", all[i].name.c_str());
        else
            printLine(all[i], outcomes[i]);
    }
}

std::string processorName()
{
    const std::string text = contentOf("/proc/cpuinfo");
    const std::size_t line = text.find("model name");
    const std::size_t name = line == std::string::npos ? line : text.find(": ", line);
    return name == std::string::npos ? "unknown processor" : text.substr(name + 2, text.find('\n', name) - name - 2);
}
}  // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    const int runs = argc > 2 ? std::atoi(argv[2]) : 5;
    const fs::path self = fs::read_symlink("/proc/self/exe");
    const std::string kestova = argc > 3 ? argv[3] : (self.parent_path() / "../tools/kestova").string();
    if (seconds <= 0 || runs <= 0 || !fs::exists(kestova))
    {
        std::fprintf(stderr, "usage: multicast_record_bench [SECONDS [RUNS [KESTOVA]]]\n");
        return 2;
    }
    bench::announce("multicast_record_bench: 542-byte datagrams from loopback multicast to a file");
    std::printf("%s, %u processors\n", processorName().c_str(), std::thread::hardware_concurrency());
    const bench::tScratch scratch(nullptr);
    for (const tCase& what : cCases)
        runCase(what, seconds, runs, recorders(kestova), scratch);
    return 0;
}
