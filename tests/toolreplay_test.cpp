// kestova replay --net as its users meet it, and the rooms behind its options and keys.
#include <array>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "UdpSocket/udpsocket.h"
#include "sessions/replay/addressmap.h"
#include "sessions/replay/pace.h"
#include "support/childprocess.h"
#include "support/datagramcollector.h"
#include "support/radarpackages.h"
#include "support/recording.h"
#include "support/tempdir.h"
#include "tools/shell/keys.h"

namespace
{
constexpr std::uint64_t cTime = 1'700'000'000'000;

// A program at a terminal of its own: what it shows, and keys for it.
class tTerminalProcess
{
public:
    explicit tTerminalProcess(const std::vector<std::string>& arguments)
    {
        m_pid = ::forkpty(&m_terminal, nullptr, nullptr, nullptr);
        if (m_pid != 0)
            return;
        std::vector<char*> argv;
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ~tTerminalProcess()
    {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
        ::close(m_terminal);
    }
    // Reads until `text` is shown; false if the program ends without it.
    bool shows(const std::string& text)
    {
        std::array<char, 4096> bytes;
        while (m_shown.find(text) == std::string::npos)
        {
            const ssize_t got = ::read(m_terminal, bytes.data(), bytes.size());
            if (got <= 0)
                return false;
            m_shown.append(bytes.data(), static_cast<std::size_t>(got));
        }
        m_shown.erase(0, m_shown.find(text) + text.size());
        return true;
    }
    void press(const std::string& keys)
    {
        ASSERT_EQ(::write(m_terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    int wait()
    {
        shows("\x01never shown");  // to the end
        int status = -1;
        ::waitpid(m_pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_pid = -1;
    int m_terminal = -1;
    std::string m_shown;
};

class tToolReplayTest : public testing::Test
{
protected:
    // makePackage's group is 239.17.0.1:6001; one every `stepMs`.
    std::string record(std::uint32_t count, std::uint64_t stepMs)
    {
        tSegments segments;
        for (std::uint32_t i = 0; i < count; ++i)
            segments.push_back({cTime + i * stepMs, makePackage(i, "spoke " + std::to_string(i), eReadType)});
        recordByHand(dir.file("r.data"), segments);
        return dir.file("r.data");
    }
    std::vector<std::string> replay(std::vector<std::string> more)
    {
        more.insert(more.begin(), {KESTOVA_TOOL, "replay"});
        return more;
    }
    tTempDir dir;
};
}  // namespace

TEST_F(tToolReplayTest, sendsEveryDatagramToTheMappedGroup)
{
    const NetAddress group = testGroup();
    tDatagramCollector heard;
    const net::UdpReceiver receiver(&heard, loopbackIp(), group, 0);
    const std::string to = net::transAddr(group.ip) + ":" + std::to_string(net::NtoHs(group.port));
    const std::string path = record(40, 50);
    tChildProcess child(replay({path, "--net", "--local-ip", "127.0.0.1", "--json", "--start", "0.5", "--speed", "10",
                                "--loop", "2", "--map", "239.17.0.1:6001=" + to}));
    ASSERT_EQ(child.wait(), 0) << child.err();
    const auto json = nlohmann::json::parse(child.out());
    EXPECT_EQ(json.at("sent"), 40);  // twice the second half, and nothing of the first
    EXPECT_EQ(json.at("streams").at(0).at("address"), to);
    ASSERT_TRUE(waitUntil([&] { return heard.count() == 40; }));
    for (std::size_t i = 0; i < 40; ++i)
        EXPECT_EQ(heard.all()[i].payload, "spoke " + std::to_string(20 + i % 20));
}

TEST_F(tToolReplayTest, saysWhatTheNetworkRefused)
{
    const std::string path = record(3, 1);
    tChildProcess child(
        replay({path, "--net", "--local-ip", "127.0.0.1", "--json", "--map", "239.17.0.1:6001=8.8.8.8:9"}));
    const int status = child.wait();  // from a loopback address nothing can leave this machine
    EXPECT_EQ(status, 3) << child.err();
    EXPECT_EQ(nlohmann::json::parse(child.out()).at("refused"), 3);
}

TEST_F(tToolReplayTest, isSteeredWithKeys)
{
    tTerminalProcess tool(replay({record(400, 1000), "--speed", "2"}));  // 1 % of it takes 2 to 4 s
    ASSERT_TRUE(tool.shows("q ends"));
    tool.press(" ");
    EXPECT_TRUE(tool.shows("paused"));
    tool.press("-\x1b[A");  // slower, and a minute on: playing
    EXPECT_TRUE(tool.shows(" 1x"));
    EXPECT_TRUE(tool.shows("  15."));  // per cent
    tool.press("q");
    EXPECT_EQ(tool.wait(), 0);
}

TEST(tKeyDecoderTest, joinsSequencesAndLeavesOutTheRest)
{
    tool::tKeyDecoder decoder;
    using tKeys = std::vector<tool::eKey>;
    EXPECT_EQ(decoder.decode(" x+\x1b["), (tKeys{tool::eKey::ePause, tool::eKey::eFaster}));
    EXPECT_EQ(decoder.decode("C\x1bOD\x1b[Zq"), (tKeys{tool::eKey::eForward, tool::eKey::eBack, tool::eKey::eQuit}));
}

TEST(tPaceTest, stepsThroughTheSpeedsThatArePlayed)
{
    EXPECT_EQ(tool::tPace::of(3.7).factor(), 3.0);
    EXPECT_EQ(tool::tPace::of(0.5).factor(), 1.0 / 3.0);
    EXPECT_EQ(tool::tPace::of(0.1).factor(), 1.0 / 11.0);
    EXPECT_EQ(tool::tPace::of(0.1).slower().factor(), 1.0 / 11.0);
    EXPECT_EQ(tool::tPace::of(1.0).slower().factor(), 0.5);
    EXPECT_EQ(tool::tPace::of(1.0).slower().faster().factor(), 1.0);
    EXPECT_EQ(tool::tPace::of(10.0).faster().factor(), 10.0);
}

TEST(tAddressMapTest, prefersTheRuleWithAPortAndRefusesWhatMapsNothing)
{
    tool::tAddressMap map;
    map.add("239.1.1.1=239.2.2.2");
    map.add("239.1.1.1:7=239.3.3.3:8");
    std::uint32_t ip = net::transAddr("239.1.1.1");
    std::uint16_t port = 7;
    map.apply(ip, port);
    EXPECT_EQ(net::transAddr(ip) + " " + std::to_string(port), "239.3.3.3 8");
    ip = net::transAddr("239.1.1.1");
    port = 9;
    map.apply(ip, port);
    EXPECT_EQ(net::transAddr(ip) + " " + std::to_string(port), "239.2.2.2 9");
    for (const char* rule :
         {"239.1.1.1=239.4.4.4", "239.1.1.1:7=239.4.4.4", "239.9.9.9", "x=y", "239.1.1.2:0=1.1.1.1:1"})
        EXPECT_THROW(map.add(rule), std::invalid_argument) << rule;
}
