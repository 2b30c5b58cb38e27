// kestova check and monitor, and kestova record as a service.
#include <atomic>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

#include "common/descriptor.h"
#include "support/ownnamespace.h"
#include "support/toolfixture.h"

namespace
{
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

class tToolStationTest : public tToolFixture
{
protected:
    // Sends a datagram of 100 bytes every 5 ms while it lives.
    class tTalker
    {
    public:
        explicit tTalker(const NetAddress& group)
            : m_sender(group, loopbackIp(), 0), m_thread([this] {
                  for (; !m_ends; std::this_thread::sleep_for(5ms))
                      m_sender.sendData(std::string(100, 'x').data(), 100);
              })
        {}
        ~tTalker()
        {
            m_ends = true;
            m_thread.join();
        }

    private:
        net::UdpSender m_sender;
        std::atomic<bool> m_ends{false};
        std::thread m_thread;
    };

    tArguments receive(const char* verb, const tArguments& more = {}) const
    {
        tArguments all = {verb, "--group", addressText(group), "--local-ip", "127.0.0.1"};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    tArguments record(const tArguments& more = {}) const
    {
        tArguments all = receive("record", {"--root", root});
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    // The first check of a name.
    static tJson check(const tJson& result, const std::string& name)
    {
        for (const tJson& one : result.at("checks"))
        {
            if (one.at("name") == name)
                return one;
        }
        ADD_FAILURE() << "no check " << name << " in " << result;
        return {{"result", ""}, {"message", ""}, {"command", ""}};
    }
    // A check whose status is the one that its results say, whatever this machine is like.
    static tJson checked(tArguments arguments)
    {
        arguments.push_back("--json");
        tChildProcess child(tool(arguments));
        const int status = child.wait();
        const tJson result = parsed(child.out());
        EXPECT_EQ(status, result.at("result") == "fail" ? 1 : result.at("result") == "warn" ? 3 : 0);
        for (const tJson& one : result.at("checks"))
            EXPECT_EQ(one.at("command") == "", one.at("result") == "ok") << one;
        return result;
    }
    static tJson records(const std::string& path) { return result({"info", path}).at("total").at("records"); }

    const NetAddress group = testGroup();
    const std::string root = dir.file("rec");
};

// In a network of its own; the test skips where there can be none.
class tToolStationNetworkTest : public tToolStationTest
{
protected:
    void SetUp() override
    {
        if (!network().why().empty())
            GTEST_SKIP() << network().why();
    }
    static const tNetworkNamespace& network()
    {
        static const tNetworkNamespace s_network;
        return s_network;
    }
};

// The manager that started a service: the other end of its NOTIFY_SOCKET.
class tManager
{
public:
    explicit tManager(const std::string& path)
        : m_path(path), m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        m_path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(m_socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    // How often a notification that begins so has come.
    std::size_t heard(const std::string& beginning)
    {
        char bytes[512];
        for (ssize_t got = 0; (got = ::recv(m_socket.get(), bytes, sizeof bytes, 0)) >= 0;)
            m_notifications.emplace_back(bytes, static_cast<std::size_t>(got));
        return static_cast<std::size_t>(std::count_if(m_notifications.begin(), m_notifications.end(),
                                                      [&](const auto& one) { return one.starts_with(beginning); }));
    }
    const std::string& path() const { return m_path; }
    const std::string& last() const { return m_notifications.back(); }

private:
    const std::string m_path;
    const tDescriptor m_socket;
    std::vector<std::string> m_notifications;
};
}  // namespace

TEST_F(tToolStationTest, checkSaysThatEverythingIsThere)
{
    const tTalker talker(group);
    const tJson result = checked(receive("check", {"--root", root, "--listen", "300ms"}));
    for (const char* const name : {"interface", "route", "port", "join", "reverse_path", "heard", "disk_room"})
        EXPECT_EQ(check(result, name).at("result"), "ok") << check(result, name);
    for (const char* const name : {"receive_buffer", "disk_speed", "clock"})
        EXPECT_NE(check(result, name).at("result"), "fail") << check(result, name);
    EXPECT_EQ(check(result, "heard").at("address"), addressText(group));
    EXPECT_THAT(std::string(check(result, "disk_room").at("message")), HasSubstr(" hours at "));
    EXPECT_FALSE(std::filesystem::exists(root));
}

TEST_F(tToolStationTest, checkNamesWhatHoldsThePortAndWhatIsSilent)
{
    const tDescriptor holder(::socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = group.port;
    ASSERT_EQ(::bind(holder.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    tJson result = checked(receive("check", {"--listen", "50ms"}));
    EXPECT_EQ(check(result, "port").at("command"), "kill " + std::to_string(::getpid()));
    EXPECT_THAT(std::string(check(result, "port").at("message")), HasSubstr("toolstation"));
    EXPECT_EQ(check(result, "join").at("result"), "ok");  // it is the port's fault
    EXPECT_EQ(check(result, "heard").at("result"), "warn");
    result = checked({"check", "--group", addressText(group), "--local-ip", "none0", "--root", "/proc/version/x"});
    EXPECT_EQ(check(result, "interface").at("result"), "fail");
    EXPECT_EQ(check(result, "join").at("result"), "warn");
    EXPECT_EQ(check(result, "disk_room").at("result"), "fail");
}

TEST_F(tToolStationNetworkTest, checkGivesTheCommandThatMendsAMissingRoute)
{
    ASSERT_TRUE(network().addInterface("radar0") && network().ip("addr add 10.79.0.1/24 dev radar0"));
    const tArguments arguments = {"check", "--group", addressText(group), "--listen", "50ms"};
    const tJson without = checked(arguments);
    EXPECT_EQ(without.at("result"), "fail");
    const tJson route = check(without, "route");
    EXPECT_THAT(std::string(route.at("message")), HasSubstr("Network is unreachable"));
    ASSERT_EQ(route.at("command"), "sudo ip route add 224.0.0.0/4 dev radar0");
    ASSERT_TRUE(network().ip(std::string(route.at("command")).substr(std::string("sudo ip ").size())));
    const tJson mended = checked(arguments);
    for (const char* const name : {"route", "interface", "join"})
        EXPECT_EQ(check(mended, name).at("result"), "ok") << check(mended, name);
    ASSERT_TRUE(network().ip("link set radar0 down"));
    const tJson down = checked({"check", "--group", addressText(group), "--local-ip", "radar0", "--listen", "50ms"});
    EXPECT_EQ(check(down, "interface").at("command"), "sudo ip link set radar0 up");
}

TEST_F(tToolStationTest, monitorCountsWhatComesAndEndsWhenAStreamIsSilent)
{
    const NetAddress quiet = testGroup();
    const tTalker talker(group);
    const tJson ended = result(receive("monitor", {"--group", addressText(quiet), "--silent", "600ms"}), 3);
    ASSERT_EQ(ended.at("silent").size(), 1u);
    EXPECT_EQ(ended.at("silent")[0].at("address"), addressText(quiet));
    ASSERT_EQ(ended.at("streams").size(), 2u);
    const tJson& heard = ended.at("streams")[0];
    EXPECT_GE(heard.at("datagrams"), 10);
    EXPECT_EQ(heard.at("bytes"), 100 * std::uint64_t(heard.at("datagrams")));
    EXPECT_GT(heard.at("jitter_p99_ms"), 0.0);
    EXPECT_GE(heard.at("jitter_p99_ms"), heard.at("jitter_p50_ms"));
    EXPECT_EQ(heard.at("kernel_dropped"), 0);
    expectIn(ended.at("streams")[1], {{"datagrams", 0}, {"last_heard_ms", nullptr}, {"jitter_p50_ms", nullptr}});
    EXPECT_GE(ended.at("streams")[1].at("longest_silence_ms"), 600);
    EXPECT_EQ(result(receive("monitor", {"--duration", "100ms", "--silent", "30s"})).at("silent"), tJson::array());
    result({"monitor", "--group", addressText(quiet), "--local-ip", "127.0.0.1", "--duration", "50ms"}, 3);
}

TEST_F(tToolStationTest, monitorShowsATableAtATerminalUntilQ)
{
    const tTalker talker(group);
    const std::string command = "stty cols 60 rows 10; " KESTOVA_TOOL " monitor --group " + addressText(group) +
                                " --local-ip 127.0.0.1 >'" + dir.file("out") + "'; echo status $?";
    tChildProcess terminal(
        {"/bin/sh", "-c", "(sleep 4; printf q; sleep 5) | script -qec \"" + command + "\" /dev/null"});
    ASSERT_TRUE(waitUntil([&] { return terminal.out().find("status 0") != std::string::npos; }, 20s)) << terminal.out();
    EXPECT_THAT(terminal.out(), HasSubstr("\x1b[1Astream "));
    EXPECT_THAT(contentsOf(dir.file("out")), HasSubstr("longest silence"));  // no terminal: every column
}

TEST_F(tToolStationTest, recordReportsToItsServiceManagerAndFeedsTheWatchdogInSilence)
{
    tManager manager(dir.file("notify"));
    tArguments arguments = tool(record());
    const tArguments environment = {"/usr/bin/env", "NOTIFY_SOCKET=" + manager.path(), "WATCHDOG_USEC=800000"};
    arguments.insert(arguments.begin(), environment.begin(), environment.end());
    tChildProcess recorder(arguments);
    ASSERT_TRUE(waitUntil([&] { return manager.heard("READY=1") == 1; }, 20s)) << recorder.err();
    EXPECT_TRUE(waitUntil([&] { return manager.heard("WATCHDOG=1") >= 4; }, 20s));
    EXPECT_GE(manager.heard("STATUS=" + root), 1u);
    EXPECT_EQ(manager.heard("STOPPING=1"), 0u);
    recorder.signal(SIGTERM);
    EXPECT_EQ(recorder.wait(), 3);
    EXPECT_EQ(manager.heard("STOPPING=1"), 1u);
}

TEST_F(tToolStationTest, recordGoesOnInTheNextFileAtAHangUpWithoutATerminal)
{
    net::UdpSender sender(group, loopbackIp(), 0);
    tArguments arguments = tool(record({"--json"}));
    arguments.insert(arguments.begin(), "/usr/bin/setsid");
    tChildProcess recorder(arguments);
    ASSERT_TRUE(recorder.says("recording to ")) << recorder.err();
    ASSERT_TRUE(sender.sendData("one", 3));
    recorder.signal(SIGHUP);
    ASSERT_TRUE(recorder.says("/0001_")) << recorder.err();
    ASSERT_TRUE(sender.sendData("two", 3));
    recorder.signal(SIGTERM);
    EXPECT_EQ(recorder.wait(), 0);
    const tJson recorded = parsed(recorder.out());
    ASSERT_EQ(recorded.at("files").size(), 2u);
    EXPECT_EQ(records(recorded.at("files")[0]), 1);
    EXPECT_EQ(records(recorded.at("files")[1]), 1);
    EXPECT_EQ(recorded.at("lost"), 0);
}

TEST_F(tToolStationTest, recordEndsAtAHangUpOfItsTerminal)
{
    std::string command = KESTOVA_TOOL;
    for (const std::string& argument : record())
        command += ' ' + argument;
    command += " 2>" + dir.file("err") + " & until grep -q 'recording to' " + dir.file("err") +
               "; do sleep 0.1; done; kill -HUP $!; wait $!; echo status $?";
    tChildProcess terminal({"/usr/bin/script", "-qec", command, "/dev/null"});
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_THAT(terminal.out(), HasSubstr("status 3"));
}

TEST_F(tToolStationTest, recordWritesMetricsThatPromtoolAccepts)
{
    const tTalker talker(group);
    const std::string metrics = dir.file("metrics.prom");
    const tJson recorded = result(record({"--duration", "300ms", "--metrics-file", metrics}));
    const std::string text = contentsOf(metrics);
    EXPECT_THAT(text, HasSubstr("kestova_datagrams_total{root=\"" + root + "\",stream=\"otherType\",address=\"" +
                                addressText(group) + "\"} " + std::to_string(int(recorded.at("datagrams"))) + '\n'));
    EXPECT_THAT(text, HasSubstr("kestova_files_total{root=\"" + root + "\"} 1\n"));
    EXPECT_THAT(text, Not(HasSubstr("address=\"" + addressText(group) + "\"} 0.000\n")));
    EXPECT_THAT(said(record({"--metrics-file", dir.file("none/m.prom")}), 1),
                HasSubstr("choose another --metrics-file"));
    tChildProcess promtool(
        {"/bin/sh", "-c", "command -v promtool >/dev/null || exit 77; promtool check metrics <" + metrics});
    const int status = promtool.wait();
    if (status == 77)
        GTEST_SKIP() << "promtool is not installed";
    EXPECT_EQ(status, 0);
    EXPECT_EQ(promtool.out() + promtool.err(), "");
}

TEST_F(tToolStationTest, recordPutsAnUrgencyBeforeEachLineOfTheJournal)
{
    std::string command = "exec " KESTOVA_TOOL;
    for (const std::string& argument : record({"--duration", "50ms"}))
        command += " '" + argument + "'";
    tChildProcess service({"/bin/sh", "-c", "export JOURNAL_STREAM=$(stat -Lc %d:%i /dev/stderr); " + command});
    EXPECT_EQ(service.wait(), 3);
    EXPECT_THAT(service.err(), testing::MatchesRegex("<6>receiving on lo[^\n]*\n<6>recording to [^\n]*\n<4>kestova "
                                                     "record: nothing was recorded[^\n]*\n"));
    tChildProcess elsewhere({"/bin/sh", "-c", "export JOURNAL_STREAM=1:1; " + command});
    EXPECT_EQ(elsewhere.wait(), 3);
    EXPECT_THAT(elsewhere.err(), testing::StartsWith("receiving on lo"));
}
