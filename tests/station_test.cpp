// What a recorder shows of itself (metrics, watchdog), and what check and monitor make of what they find.
#include <fstream>
#include <gmock/gmock.h>
#include <regex>
#include <sstream>

#include "KestovaRecordings/failure.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/check/checksession.h"
#include "sessions/check/machinechecks.h"
#include "sessions/monitor/arrivals.h"
#include "sessions/record/metrics.h"
#include "support/filebytes.h"
#include "support/tempdir.h"
#include "tools/commands/monitortable.h"
#include "tools/shell/servicemanager.h"

namespace
{
using namespace std::chrono_literals;
using namespace session;
using recordings::tStreamKey;
using testing::HasSubstr;

constexpr std::int64_t cMs = 1'000'000;

tStreamKey key(std::uint16_t port)
{
    return tStreamKey::of(eGpsDev, net::transAddr("239.1.1.1"), port);
}

tMonitoredStream stream(std::uint16_t port, bool heard)
{
    tMonitoredStream made;
    made.key = key(port);
    made.heard = heard;
    made.datagrams = heard ? 500 : 0;
    return made;
}
}  // namespace

TEST(tWatchdogTest, isFedWhileTheWriterAdvancesOrHasNothingToDo)
{
    const tool::tWatchdog::tTime start{1h};
    tool::tWatchdog watchdog(8s);
    EXPECT_TRUE(watchdog.feeds(0, 0, start));         // nothing to do
    EXPECT_FALSE(watchdog.feeds(5, 9, start + 1s));   // not due
    EXPECT_TRUE(watchdog.feeds(5, 9, start + 2s));    // advances
    EXPECT_FALSE(watchdog.feeds(5, 20, start + 5s));  // stands still
    EXPECT_FALSE(watchdog.feeds(5, 30, start + 60s));
    EXPECT_TRUE(watchdog.feeds(6, 30, start + 61s));
    EXPECT_TRUE(watchdog.feeds(30, 30, start + 64s));
    EXPECT_TRUE(watchdog.feeds(30, 30, start + 67s));  // silence
    EXPECT_FALSE(tool::tWatchdog(0s).feeds(1, 1, start));
}

TEST(tMetricsTest, areLinesThatPrometheusReads)
{
    tRecorderState state;
    state.streams[key(6009)] = {7, 700, {}};
    state.streams[key(6010)] = {};
    state.discarded[key(6009)] = 3;
    state.backlog = 4;
    state.lost = 5;
    tLastHeard heard;
    heard.update(state.streams, 1'715'940'000'250);
    heard.update(state.streams, 1'715'940'009'000);  // nothing came
    const std::string text = metricsText({"a \"b\"\\\n\xff", state, heard, 1000, 2, 1, 12.5});
    const std::string root = "{root=\"a \\\"b\\\"\\\\%0A%FF\"", gps = root + ",stream=\"gpsDev\",address=\"239.1.1.1:";
    for (const std::string& line :
         {"kestova_datagrams_total" + gps + "6009\"} 7", "kestova_received_bytes_total" + gps + "6009\"} 700",
          "kestova_kernel_dropped_datagrams_total" + gps + "6009\"} 3",
          "kestova_last_heard_timestamp_seconds" + gps + "6009\"} 1715940000.250",
          "kestova_last_heard_timestamp_seconds" + gps + "6010\"} 0.000", "kestova_backlog_messages" + root + "} 4",
          "kestova_lost_messages_total" + root + "} 5", "kestova_disk_free_bytes" + root + "} 1000",
          "kestova_files_total" + root + "} 2", "kestova_recordings_deleted_total" + root + "} 1",
          "kestova_clock_offset_seconds" + root + "} 0.013"})
        EXPECT_THAT(text, HasSubstr('\n' + line + '\n'));
    const std::regex sample("[a-z_]+\\{([a-z]+=\"([^\"\\\\]|\\\\[\\\\\"])*\",?)+\\} [0-9.]+");
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        EXPECT_TRUE(line.starts_with("# ") || std::regex_match(line, sample)) << line;
}

TEST(tMetricsTest, fileIsReplacedAsAWholeAndRefusedWhereNoneCanBe)
{
    const tTempDir dir;
    const tMetricsFile file(dir.file("metrics.prom"));
    std::ifstream before(dir.file("metrics.prom"));
    EXPECT_EQ(file.write("after\n"), 0);
    EXPECT_EQ(contentsOf(dir.file("metrics.prom")), "after\n");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(before), {}), "# kestova record is starting\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
    EXPECT_THROW(tMetricsFile(dir.file("none/metrics.prom")), recordings::tFailure);
}

TEST(tArrivalsTest, knowsHowFarIntervalsAreFromTheUsualOne)
{
    tArrivals arrivals;
    std::int64_t now = 0;
    arrivals.add(now, 10);
    arrivals.add(now += 10 * cMs, 10);
    EXPECT_FALSE(arrivals.jitter());
    for (int i = 1; i < 200; ++i)  // every tenth is 2 ms late, the next one not
        arrivals.add(now += (i % 10 == 8 ? 12 : i % 10 == 9 ? 8 : 10) * cMs, 10);
    ASSERT_TRUE(arrivals.jitter());
    EXPECT_DOUBLE_EQ(arrivals.jitter()->p50Ms, 0.0);
    EXPECT_DOUBLE_EQ(arrivals.jitter()->p99Ms, 2.0);
    arrivals.add(now += 500 * cMs, 10);
    arrivals.add(now - 100 * cMs, 10);  // the clock was set back
    EXPECT_EQ(arrivals.longestInterval(), 500 * cMs);
    EXPECT_EQ(arrivals.datagrams(), 203u);
    EXPECT_EQ(arrivals.bytes(), 2030u);
    for (int i = 0; i < 3000; ++i)
        arrivals.add(now += 20 * cMs, 10);
    EXPECT_DOUBLE_EQ(arrivals.jitter()->p99Ms, 0.0);  // of the last 1,024
}

TEST(tMonitorTableTest, fitsTheTerminal)
{
    std::vector<tMonitoredStream> streams;
    for (std::uint16_t port = 6001; port <= 6030; ++port)
        streams.push_back(stream(port, port != 6001));
    for (const std::size_t width : {10u, 40u, 60u, 79u, 100u, 200u})
    {
        std::istringstream lines(tool::monitorTable(streams, width, 24));
        std::size_t count = 0;
        for (std::string line; std::getline(lines, line); ++count)
            EXPECT_LE(line.size(), width) << line;
        EXPECT_EQ(count, 24u);
    }
    EXPECT_THAT(tool::monitorTable(streams, 79, 24), HasSubstr("\nand 8 more"));
    EXPECT_THAT(tool::monitorTable(streams, 79, 24), HasSubstr("never"));
    const std::string all = tool::monitorTable(streams, std::string::npos, 31);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 30);
    EXPECT_THAT(all, HasSubstr("239.1.1.1:6030"));
    streams[0].key = tStreamKey::of(eOtherType, net::transAddr("239.1.1.1"), 6001);
    EXPECT_THAT(tool::monitorTable(streams, 79, 24), HasSubstr("\n239.1.1.1:6001"));
}

TEST(tCheckTest, warnsOfStreamsThatAreSilentOrDropped)
{
    EXPECT_EQ(checkStream(stream(1, true), 5000).result, eCheckResult::eOk);
    const tCheck silent = checkStream(stream(1, false), 5000);
    EXPECT_EQ(silent.result, eCheckResult::eWarn);
    EXPECT_EQ(silent.message, "no datagram of gpsDev 239.1.1.1:1 in 5.0 s: is the radar on?");
    EXPECT_EQ(silent.stream, key(1));
    tMonitoredStream dropped = stream(1, true);
    dropped.kernelDropped = 2;
    EXPECT_EQ(checkStream(dropped, 5000).result, eCheckResult::eWarn);
}

TEST(tCheckTest, findsWhatAnInterfaceLacks)
{
    const tLink good{"eth0", net::transAddr("10.1.1.1"), true, true, false, true};
    const tLink loopback{"lo", net::transAddr("127.0.0.1"), true, true, true, false};
    const auto command = [&](tLink link, const char* name) {
        return checkInterface({loopback, link}, name, 0).command;
    };
    EXPECT_EQ(command(good, "eth0"), "");
    EXPECT_EQ(command(good, "10.1.1.1"), "");
    EXPECT_EQ(command(good, "lo"), "");
    EXPECT_EQ(command(good, "eth1"), "ip -brief address");
    EXPECT_EQ(checkInterface({loopback, good}, "", loopback.ip).result, eCheckResult::eWarn);  // chosen by nobody
    tLink bad = good;
    bad.ip = 0;
    EXPECT_EQ(command(bad, "eth0"), "sudo ip address add 192.168.1.20/24 dev eth0");
    bad = good;
    bad.isUp = false;
    EXPECT_EQ(command(bad, "eth0"), "sudo ip link set eth0 up");
    bad = good;
    bad.isRunning = false;
    EXPECT_THAT(checkInterface({bad}, "eth0", 0).message, HasSubstr("no carrier"));
    bad = good;
    bad.canMulticast = false;
    EXPECT_EQ(command(bad, "eth0"), "sudo ip link set eth0 multicast on");
}

TEST(tCheckTest, suspectsTheReversePathFilterWhereSomethingIsSilent)
{
    const tLink link{"eth0", net::transAddr("10.1.1.1"), true, true, false, true};
    const auto warns = [&](eReversePath filter, bool defaultRoute, bool silent) {
        return checkReversePath(link, filter, defaultRoute, silent).result == eCheckResult::eWarn;
    };
    EXPECT_FALSE(warns(eReversePath::eAccepts, false, true));
    EXPECT_TRUE(warns(eReversePath::eDropsUnlessSameWay, true, true));
    EXPECT_FALSE(warns(eReversePath::eDropsUnlessSameWay, true, false));
    EXPECT_FALSE(warns(eReversePath::eDropsUnlessAnyWay, true, true));
    EXPECT_TRUE(warns(eReversePath::eDropsUnlessAnyWay, false, true));
}

TEST(tCheckTest, weighsTheDiskAgainstWhatComes)
{
    const auto room = [](std::uint64_t bytes, double rate, int error = 0) {
        return checkDiskRoom("r", {"/", error, bytes}, rate);
    };
    EXPECT_EQ(room(100'000'000'000, 1e6).result, eCheckResult::eOk);
    EXPECT_THAT(room(72'000'000'000, 1e6).message, HasSubstr("for 20.0 hours at 1.0 MB/s"));
    EXPECT_EQ(room(72'000'000'000, 1e6).command, "kestova prune r --min-free 87G");
    EXPECT_EQ(room(72'000'000'000, 0).result, eCheckResult::eOk);
    EXPECT_EQ(room(1'000'000'000, 0).result, eCheckResult::eWarn);
    EXPECT_EQ(room(0, 0).result, eCheckResult::eFail);
    EXPECT_EQ(room(100'000'000'000, 1e6, EACCES).result, eCheckResult::eFail);
    EXPECT_EQ(checkDiskSpeed("r", 1e8, 1e6).result, eCheckResult::eOk);
    EXPECT_EQ(checkDiskSpeed("r", 3e6, 1e6).result, eCheckResult::eWarn);
    EXPECT_EQ(checkDiskSpeed("r", 9e5, 1e6).result, eCheckResult::eFail);
    EXPECT_EQ(checkDiskSpeed("r", std::nullopt, 0).result, eCheckResult::eFail);
}

TEST(tCheckTest, measuresTheDiskAndLeavesNothingBehind)
{
    const tTempDir dir;
    const tDiskRoom found = diskRoom(dir.file("a/b"));
    EXPECT_EQ(found.folder, dir.string());
    EXPECT_EQ(found.error, 0);
    EXPECT_GT(writingSpeed(found).value_or(0.0), 0.0);
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    std::ofstream(dir.file("plain")) << "x";
    EXPECT_EQ(diskRoom(dir.file("plain/b")).error, ENOTDIR);
}

TEST(tCheckTest, warnsOfAClockThatIsNotSynchronised)
{
    EXPECT_EQ(checkClock({true, true, 1.5}).result, eCheckResult::eOk);
    EXPECT_EQ(checkClock({true, false, 1.5}).result, eCheckResult::eWarn);
    EXPECT_EQ(checkClock({}).result, eCheckResult::eWarn);
    EXPECT_EQ(quoted("/data/a b's"), "'/data/a b'\\''s'");
}
