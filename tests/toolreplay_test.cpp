// kestova replay --net as its users meet it, and the classes behind its options and keys.
#include <array>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sessions/replay/addressmap.h"
#include "sessions/replay/pace.h"
#include "support/toolfixture.h"
#include "tools/shell/keys.h"

namespace
{
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

class tToolReplayTest : public tToolFixture
{
protected:
    // makePackage's group is 239.17.0.1:6001; one every `stepMs`.
    std::string record(std::uint32_t count, std::uint64_t stepMs) const
    {
        std::vector<std::string> segments;
        for (std::uint32_t i = 0; i < count; ++i)
            segments.push_back(makePackage(i, "spoke " + std::to_string(i), eReadType));
        return fileOf(segments, stepMs);
    }
};
}  // namespace

TEST_F(tToolReplayTest, sendsEveryDatagramToTheMappedGroup)
{
    tGroupListener display;
    const std::string to = addressText(display.group);
    const tJson json = result({"replay", record(40, 50), "--net", "--local-ip", "127.0.0.1", "--start", "0.5",
                               "--speed", "10", "--loop", "2", "--map", "239.17.0.1:6001=" + to});
    EXPECT_EQ(json.at("sent"), 40);  // twice the second half, and nothing of the first
    EXPECT_EQ(json.at("streams").at(0).at("address"), to);
    ASSERT_TRUE(display.heard(40));
    for (std::size_t i = 0; i < 40; ++i)
        EXPECT_EQ(display.all()[i].payload, "spoke " + std::to_string(20 + i % 20));
}

// From a loopback address nothing can leave this machine.
TEST_F(tToolReplayTest, reportsWhatTheNetworkRefused)
{
    const tJson json =
        result({"replay", record(3, 1), "--net", "--local-ip", "127.0.0.1", "--map", "239.17.0.1:6001=8.8.8.8:9"}, 3);
    EXPECT_EQ(json.at("refused"), 3);
}

TEST_F(tToolReplayTest, isSteeredWithKeys)
{
    tTerminalProcess terminal(tool({"replay", record(400, 1000), "--speed", "2"}));  // 1 % of it takes 2 to 4 s
    ASSERT_TRUE(terminal.shows("q ends"));
    terminal.press(" ");
    EXPECT_TRUE(terminal.shows("paused"));
    terminal.press("-\x1b[A");  // slower, and a minute on: playing
    EXPECT_TRUE(terminal.shows(" 1x"));
    EXPECT_TRUE(terminal.shows("  15."));  // per cent
    terminal.press("q");
    EXPECT_EQ(terminal.wait(), 0);
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
    using session::tPace;
    EXPECT_EQ(tPace::of(3.7).factor(), 3.0);
    EXPECT_EQ(tPace::of(0.5).factor(), 1.0 / 3.0);
    EXPECT_EQ(tPace::of(0.1).factor(), 1.0 / 11.0);
    EXPECT_EQ(tPace::of(0.1).slower().factor(), 1.0 / 11.0);
    EXPECT_EQ(tPace::of(1.0).slower().factor(), 0.5);
    EXPECT_EQ(tPace::of(1.0).slower().faster().factor(), 1.0);
    EXPECT_EQ(tPace::of(10.0).faster().factor(), 10.0);
}

TEST(tAddressMapTest, prefersTheRuleWithAPortAndRefusesWhatMapsNothing)
{
    session::tAddressMap map;
    map.add("239.1.1.1=239.2.2.2");
    map.add("239.1.1.1:7=239.3.3.3:8");
    for (const auto& [from, to] : {std::pair(7, "239.3.3.3 8"), {9, "239.2.2.2 9"}})
    {
        std::uint32_t ip = net::transAddr("239.1.1.1");
        auto port = static_cast<std::uint16_t>(from);
        map.apply(ip, port);
        EXPECT_EQ(net::transAddr(ip) + " " + std::to_string(port), to);
    }
    for (const char* rule :
         {"239.1.1.1=239.4.4.4", "239.1.1.1:7=239.4.4.4", "239.9.9.9", "x=y", "239.1.1.2:0=1.1.1.1:1"})
        EXPECT_THROW(map.add(rule), std::invalid_argument) << rule;
}
