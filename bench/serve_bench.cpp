// What `kestova serve` costs, and how long pages wait.
//
//   serve_bench live [VIEWERS [SECONDS]]      20 viewers of one simulated radar: the server's share of a processor,
//   what
//                                             they got, and how old a spoke is when a viewer has it (loopback)
//   serve_bench jump [FOLDER [FILES]]         jumps in FILES files of 1 GB (10): from asking until the picture is whole
//   serve_bench timeline [FOLDER [FILES]]     30 days in 8,600 files of five minutes with sheets of ten streams: the
//                                             first answer, until all of it is there, and the same again
//
// The server is the program, started by the benchmark. Medians of nine where nothing else is said.
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <thread>

#include "bench/measure.h"
#include "bench/recordedfiles.h"
#include "common/byteorder.h"
#include "tests/support/childprocess.h"
#include "tests/support/httpclient.h"

namespace
{
constexpr int cRuns = 9;
constexpr std::uint64_t cFirstMs = 1'700'000'000'000;
constexpr char cRadars[] = KESTOVA_SOURCE_DIR "/examples/radars.json";

class tServing
{
public:
    explicit tServing(const std::string& root, const std::string& layout = "")
        : m_child({KESTOVA_TOOL, "serve", "--root", root, "--radars", cRadars, "--local-ip", "127.0.0.1", "--listen",
                   "127.0.0.1:0", layout.empty() ? "--quiet" : "--layout=" + layout})
    {
        waitUntil([this] { return m_child.out().find('\n') != std::string::npos; }, std::chrono::seconds(60));
        const std::string url = m_child.out();
        port = static_cast<std::uint16_t>(std::atoi(url.substr(url.rfind(':') + 1).c_str()));
    }
    // Seconds of a processor that the server has taken, and its resident bytes.
    double processorTime() const
    {
        std::ifstream file(procFile("stat"));
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        long user = 0, system = 0;
        std::sscanf(text.substr(text.rfind(')')).c_str(), ") %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld",
                    &user, &system);
        return static_cast<double>(user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
    }
    double residentMiB() const
    {
        std::ifstream file(procFile("statm"));
        long total = 0, resident = 0;
        file >> total >> resident;
        return static_cast<double>(resident * ::sysconf(_SC_PAGESIZE)) / 1048576;
    }
    std::uint16_t port = 0;

private:
    std::string procFile(const char* name) const { return "/proc/" + std::to_string(m_child.pid()) + '/' + name; }

    tChildProcess m_child;
};

std::string idIn(const std::string& json)
{
    const std::size_t at = json.find("\"id\":\"");
    return at == std::string::npos ? "" : json.substr(at + 6, 16);
}

double nowMs()
{
    return std::chrono::duration<double, std::milli>(std::chrono::system_clock::now().time_since_epoch()).count();
}

struct tWatched
{
    std::size_t spokes = 0, bytes = 0;
    std::vector<double> ages;  // of the newest spoke of each batch, in ms
};

// The time of the last spoke of a batch.
std::uint64_t lastTime(const std::string& batch)
{
    std::size_t at = 24, last = 24;
    while (at + 40 <= batch.size())
    {
        const auto cells = le::load<std::uint32_t>(batch.data() + at + 28);
        last = at;
        at += (40 + cells * static_cast<unsigned char>(batch[at + 37]) + 7) / 8 * 8;
    }
    return le::load<std::uint64_t>(batch.data() + last);
}

void watch(std::uint16_t port, double untilMs, tWatched& result)
{
    tWebSocketClient page(port);
    page.say(R"({"type":"open","picture":"a","radar":"A1:2/1","id":"live"})");
    while (nowMs() < untilMs)
    {
        const auto message = page.next();
        if (message.opcode == 0)
            break;
        if (message.opcode != 2)
            continue;
        result.spokes += le::load<std::uint16_t>(message.bytes.data() + 2);
        result.bytes += message.bytes.size();
        result.ages.push_back(nowMs() - static_cast<double>(lastTime(message.bytes)));
    }
}

int live(std::size_t viewers, int seconds)
{
    const bench::tScratch scratch(nullptr);
    tChildProcess radar({KESTOVA_TOOL, "simulate", "--radars", cRadars, "--radar", "A1:2", "--id", "1", "--local-ip",
                         "127.0.0.1", "--duration", std::to_string(seconds + 30)});
    const tServing serving(scratch.path());
    std::vector<tWatched> watched(viewers);
    std::vector<std::thread> threads;
    const double untilMs = nowMs() + 1000.0 * (seconds + 5);
    for (tWatched& one : watched)
        threads.emplace_back([&] { watch(serving.port, untilMs, one); });
    std::this_thread::sleep_for(std::chrono::seconds(5));
    const double before = serving.processorTime(), began = nowMs();
    std::this_thread::sleep_for(std::chrono::seconds(seconds - 1));
    const double share = (serving.processorTime() - before) / (nowMs() - began) * 1000;
    const double memory = serving.residentMiB();
    std::size_t spokes = 0;
    std::vector<double> ages;
    for (std::size_t i = 0; i < viewers; ++i)
    {
        threads[i].join();
        spokes += watched[i].spokes;
        ages.insert(ages.end(), watched[i].ages.begin(), watched[i].ages.end());
    }
    if (ages.empty())
        return std::fprintf(stderr, "no spoke came\n"), 1;
    std::printf(
        "%zu viewers: %.1f %% of a processor, %.0f MiB, %.0f spokes/s each; a spoke is %.0f ms old (p50), %.0f ms "
        "(p99)\n",
        viewers, share * 100, memory, static_cast<double>(spokes) / static_cast<double>(viewers) / (seconds + 5),
        bench::percentile(ages, 0.5), bench::percentile(ages, 0.99));
    return 0;
}

// Spokes of 500 cells, 1,640 a second, 4,096 a turn.
void recordSpokes(const std::string& path, std::size_t records, std::size_t from)
{
    using namespace storage;
    constexpr std::size_t cLen = 2100, cPiece = 1024;
    const tDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    std::string piece, slots;
    for (std::size_t i = 0; i < records; ++i)
    {
        std::string package = bench::packageOf(0, cLen);
        const std::size_t bearing = (from + i) % 4096;
        package[sizeof(tRadarMsgPackage)] = static_cast<char>(bearing & 255);
        package[sizeof(tRadarMsgPackage) + 1] = static_cast<char>(bearing >> 8);
        const auto slot = encode(tNormalIndexTable{cFirstMs + (from + i) * 1000 / 1640, cPayloadPos + i * cLen, cLen});
        slots.append(reinterpret_cast<const char*>(slot.data()), slot.size());
        piece += package;
        if ((i + 1) % cPiece != 0 && i + 1 != records)
            continue;
        bench::put(file, piece.data(), piece.size(), cPayloadPos + (i + 1) * cLen - piece.size());
        piece.clear();
    }
    const std::uint32_t magic = cDataFileHead;
    const tIndexHead head{static_cast<std::uint32_t>(records), cLen};
    bench::put(file, &magic, sizeof magic, 0);
    bench::put(file, &head, sizeof head, cIndexHeadPos);
    bench::put(file, slots.data(), slots.size(), cIndexPos);
}

double jumpOnce(tWebSocketClient& page, std::uint64_t ms)
{
    const auto start = bench::tClock::now();
    page.say("{\"type\":\"seek\",\"time_ms\":" + std::to_string(ms) + "}");
    for (;;)
    {
        const auto message = page.next();
        if (message.opcode == 0)
            return NAN;
        if (message.opcode == 2 && (le::load<std::uint32_t>(message.bytes.data() + 12) & 2) != 0 &&
            lastTime(message.bytes) + 2 > ms)
            return bench::secondsSince(start);
    }
}

int jump(const char* folder, std::size_t files)
{
    constexpr std::size_t cRecords = 470'000;
    const bench::tScratch scratch(folder);
    const std::string layout = scratch.path() + "layout.json";
    std::ofstream(layout) << R"({"spoke": {"azimuth": {"at": 0, "width": 2, "per_turn": 4096}, "range": 11112, )"
                             R"("cells": {"at": 2, "count": 500, "bits": 8}, "order": "little"}})";
    std::filesystem::create_directories(scratch.path() + "root/one");
    for (std::size_t i = 0; i < files; ++i)
        recordSpokes(scratch.path() + "root/one/000" + std::to_string(i) + "_x.data", cRecords, i * cRecords);
    const tServing serving(scratch.path() + "root", layout);
    const std::string id = idIn(tHttpClient(serving.port).ask("GET", "/api/v1/recordings").body);
    tWebSocketClient page(serving.port);
    page.say(R"({"type":"open","picture":"a","id":")" + id + "\"}");
    std::vector<double> times;
    for (int i = 0; i < cRuns; ++i)
        times.push_back(jumpOnce(page, cFirstMs + (files * cRecords * 1000 / 1640) *
                                                      static_cast<std::size_t>((i * 7) % 9 + 1) / 11));
    const auto figures = bench::figuresOf(times);
    std::printf("a jump in %.1f GB: %.0f ms until the picture is whole (%.0f to %.0f)\n",
                static_cast<double>(files * cRecords) * 2100 / 1e9, figures.median * 1e3, figures.low * 1e3,
                figures.high * 1e3);
    return 0;
}

// Two records, and a sheet that says what ten streams sent in the five minutes between them.
void recordFiveMinutes(const std::string& path, std::uint64_t firstMs)
{
    using namespace storage;
    constexpr std::size_t cLen = 60;
    const tDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    recordings::tSheetBuilder builder;
    for (std::size_t i = 0; i < 2; ++i)
    {
        const std::uint64_t time = firstMs + i * 299'900, pos = cPayloadPos + i * cLen;
        const std::string package = bench::packageOf(i, cLen);
        builder.add(time, cNoFineTime, package, pos);
        const auto slot = encode(tNormalIndexTable{time, pos, cLen});
        bench::put(file, slot.data(), slot.size(), cIndexPos + i * cIndexSlotSize);
        bench::put(file, package.data(), package.size(), pos);
    }
    const std::uint32_t magic = cDataFileHead;
    const tIndexHead head{2, cLen};
    bench::put(file, &magic, sizeof magic, 0);
    bench::put(file, &head, sizeof head, cIndexHeadPos);
    recordings::tSheet sheet;
    sheet.id = recordings::newSheetId();
    builder.fill(sheet);
    sheet.streams.clear();
    for (unsigned n = 0; n < 10; ++n)
    {
        recordings::tSheetStream stream;
        stream.key = recordings::tStreamKey::of(static_cast<tReadWriteType>(n), 0x010011ef,
                                                static_cast<std::uint16_t>(6001 + n));
        for (std::uint32_t second = 0; second < 300; ++second)
        {
            stream.perSecond.emplace_back(firstMs / 1000 + second, 1000 + second % 7);
            stream.messages += 1000 + second % 7;
        }
        stream.bytes = 542 * stream.messages;
        stream.firstMs = firstMs;
        stream.lastMs = firstMs + 299'900;
        sheet.streams.push_back(stream);
    }
    recordings::sealSheet(sheet, path);
    recordings::writeSheet(path, sheet);
}

double secondsOf(tHttpClient& client, const std::string& target, std::string& body)
{
    const auto start = bench::tClock::now();
    body = client.ask("GET", target).body;
    return bench::secondsSince(start);
}

int timeline(const char* folder, std::size_t files)
{
    const bench::tScratch scratch(folder);
    std::filesystem::create_directories(scratch.path() + "month");
    for (std::size_t i = 0; i < files; ++i)
    {
        char name[64];
        std::snprintf(name, sizeof name, "month/%04zu_x.data", i);
        recordFiveMinutes(scratch.path() + name, cFirstMs + i * 300'000);
    }
    const tServing serving(scratch.path());
    tHttpClient client(serving.port);
    const std::string target = "/api/v1/timeline?columns=1000";
    std::string body;
    const double first = secondsOf(client, target, body);
    double whole = first;
    while (body.find("\"complete\":true") == std::string::npos && whole < 60)
        whole += secondsOf(client, target, body);
    std::vector<double> again;
    for (int i = 0; i < cRuns; ++i)
        again.push_back(secondsOf(client, target, body));
    std::printf(
        "timeline of %zu files: first answer %.0f ms, whole %.0f ms, again %.0f ms; %zu bytes, server %.0f MiB\n",
        files, first * 1e3, whole * 1e3, bench::figuresOf(again).median * 1e3, body.size(), serving.residentMiB());
    return 0;
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("serve_bench");
    const std::string what = argc > 1 ? argv[1] : "live";
    const auto number = [&](int place, std::size_t otherwise) {
        return argc > place ? std::strtoul(argv[place], nullptr, 10) : otherwise;
    };
    if (what == "live")
        return live(number(2, 20), static_cast<int>(number(3, 20)));
    const char* const folder = argc > 2 ? argv[2] : nullptr;
    return what == "jump" ? jump(folder, number(3, 10)) : timeline(folder, number(3, 8600));
}
