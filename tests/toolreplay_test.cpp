// kestova replay --net as its users meet it, and the classes behind its options and keys.
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "sessions/replay/addressmap.h"
#include "sessions/replay/pace.h"
#include "sessions/replay/recordedclock.h"
#include "support/toolfixture.h"
#include "tools/shell/keys.h"

namespace
{
// What a shell does for its job: puts it into the foreground, takes the terminal back when it stops, and goes on with
// it. Returns its exit status.
int superviseJob(pid_t job)
{
    std::signal(SIGTTOU, SIG_IGN);
    int status = 0;
    while (::waitpid(job, &status, WUNTRACED) == job && WIFSTOPPED(status))
    {
        ::tcsetpgrp(0, ::getpgrp());
        termios mode{};
        ::tcgetattr(0, &mode);
        std::printf("stopped, lines %s\r\n", (mode.c_lflag & ICANON) != 0 ? "whole" : "raw");
        std::fflush(stdout);
        mode.c_lflag |= ICANON | ECHO;
        ::tcsetattr(0, TCSANOW, &mode);
        ::tcsetpgrp(0, job);
        ::kill(-job, SIGCONT);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

// Returns in a job of this process's own, in the foreground; this process supervises it and ends with it.
void becomeJob()
{
    const pid_t job = ::fork();
    if (job != 0)
        ::_exit(superviseJob(job));
    ::setpgid(0, 0);
    std::signal(SIGTTOU, SIG_IGN);
    ::tcsetpgrp(0, ::getpid());
    std::signal(SIGTTOU, SIG_DFL);
}

// A program at a terminal of its own: what it shows, and keys for it.
class tTerminalProcess
{
public:
    explicit tTerminalProcess(const std::vector<std::string>& arguments, unsigned short columns = 120)
    {
        const winsize size{24, columns, 0, 0};
        m_pid = ::forkpty(&m_terminal, nullptr, nullptr, &size);
        if (m_pid != 0)
            return;
        becomeJob();
        std::vector<char*> argv;
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ~tTerminalProcess()
    {
        ::close(m_terminal);  // hangs up: the job ends
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
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
    // Stops the job as no key does: it learns of it when it goes on.
    void stop() const { ::kill(-::tcgetpgrp(m_terminal), SIGSTOP); }
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
    expectIn(json, {{"refused", 3}, {"sent", 0}, {"records", 3}, {"bytes", 0}});
    expectIn(json.at("streams").at(0), {{"address", "8.8.8.8:9"}, {"datagrams", 0}});
}

TEST_F(tToolReplayTest, refusesWhatMatchesNothingBeforeAnythingIsSent)
{
    const tGroupListener display;
    const std::string path = record(20, 100), to = addressText(display.group);
    const tArguments net = {"replay", path, "--net", "--local-ip", "127.0.0.1", "--map", "239.17.0.1:6001=" + to};
    const std::vector<std::pair<tArguments, std::string>> refusals = {
        {{"--map", "239.17.0.2=239.17.0.3"}, "nothing was recorded from 239.17.0.2; the recording has 239.17.0.1:6001"},
        {{"--streams", "arpaCtrl"}, "the recording has "},
        {{"--start", "+2s"}, "behind the end: the recording goes from "},
        {{"--start", "-2s"}, "before the beginning"}};
    for (const auto& [more, reason] : refusals)
    {
        tArguments arguments = net;
        arguments.insert(arguments.end(), more.begin(), more.end());
        const std::string why = said(arguments, 1);
        EXPECT_NE(why.find(reason), std::string::npos) << why;
    }
    EXPECT_EQ(result({"replay", path, "--start", "-500ms"}).at("records"), 6);
    EXPECT_TRUE(display.all().empty());
}

TEST_F(tToolReplayTest, skipsSilencesAndPlaysSeveralPathsAsOne)
{
    const std::string first = record(20, 100);
    const std::string second =
        fileOf(std::vector<std::string>(20, makePackage(1, "later", eReadType)), 100, "later.data", cTime + 3'600'000);
    const tJson played = result({"replay", second, first, "--speed", "10", "--skip-silence"});
    expectIn(played, {{"records", 40}, {"played_ms", 2 * 1900}, {"first_ms", cTime}, {"ended", true}});
    EXPECT_EQ(played.at("paths"), (tJson{second, first}));
}

TEST_F(tToolReplayTest, playsFractionalSpeedsExactly)
{
    const std::string path = record(30, 50);
    const auto pace = [&](const char* speed) {
        const tJson json = result({"replay", path, "--speed", speed});
        EXPECT_EQ(json.at("speed"), std::stod(speed));
        return json.at("pace").get<double>();
    };
    EXPECT_GT(pace("1.9"), 1.3 * pace("1"));
}

TEST_F(tToolReplayTest, isSteeredWithKeys)
{
    tTerminalProcess terminal(tool({"replay", record(400, 1000), "--speed", "2"}));  // 1 % of it takes 2 to 4 s
    ASSERT_TRUE(terminal.shows("q ends"));
    terminal.press(" ");
    EXPECT_TRUE(terminal.shows("paused"));
    terminal.press("-\x1b[A");  // slower, and a minute on
    EXPECT_TRUE(terminal.shows("00:01:0"));
    EXPECT_TRUE(terminal.shows("of 00:06:39  15."));  // per cent
    EXPECT_TRUE(terminal.shows(" 1x"));
    EXPECT_TRUE(terminal.shows("paused"));
    terminal.press("q");
    EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(tToolReplayTest, sendsNothingAfterAJumpWhilePaused)
{
    tGroupListener display;
    tTerminalProcess terminal(tool({"replay", record(20000, 10), "--net", "--local-ip", "127.0.0.1", "--map",
                                    "239.17.0.1:6001=" + addressText(display.group)}));
    ASSERT_TRUE(terminal.shows("q ends"));
    ASSERT_TRUE(display.heard(1));
    terminal.press(" ");
    ASSERT_TRUE(terminal.shows("paused"));
    std::size_t before = 0;
    ASSERT_TRUE(waitUntil([&] {
        const std::size_t last = std::exchange(before, display.count());
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return last == before;
    }));
    terminal.press("\x1b[A\x1b[C");
    EXPECT_TRUE(terminal.shows("00:01:"));
    EXPECT_TRUE(terminal.shows("paused"));
    EXPECT_EQ(display.count(), before);
    terminal.press(" ");
    ASSERT_TRUE(display.heard(before + 1));
    const auto spoke = [&](std::size_t index) { return std::stoi(display.all()[index].payload.substr(6)); };
    EXPECT_NEAR(spoke(before), spoke(before - 1) + 7000, 100);  // a minute and ten seconds on
    terminal.press("q");
    EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(tToolReplayTest, showsUntilWhenNothingWasRecordedAndSkipsIt)
{
    record(2, 100);
    fileOf(std::vector<std::string>(400, makePackage(1, "later", eReadType)), 1000, "later.data", cTime + 3'600'000);
    tTerminalProcess terminal(tool({"replay", dir.string(), "--utc"}), 60);
    ASSERT_TRUE(terminal.shows("q ends"));
    EXPECT_TRUE(terminal.shows("00:00:00 of 01:06:39  silence until 11:00:00, g skips it"));
    terminal.press("\x1b[A");  // the clock of the recording goes on in a silence
    EXPECT_TRUE(terminal.shows("00:01:0"));
    terminal.press("g");
    EXPECT_TRUE(terminal.shows("01:00:0"));
    terminal.press("q");
    EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(tToolReplayTest, notesAPlaceAndShowsItWhenItIsPassed)
{
    const std::string path = record(400, 1000);
    tTerminalProcess terminal(tool({"replay", path, "--start", "+10s"}));
    ASSERT_TRUE(terminal.shows("q ends"));
    terminal.press("n");
    EXPECT_TRUE(terminal.shows("noted at "));
    EXPECT_TRUE(terminal.shows("note: noted while replaying"));
    terminal.press("q");
    EXPECT_EQ(terminal.wait(), 0);
    const tJson notes = sheetOf(path).at("notes");
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_GE(notes.at(0).at("time_ms"), cTime + 10'000);
    EXPECT_LT(notes.at(0).at("time_ms"), cTime + 60'000);
    tTerminalProcess again(tool({"replay", path, "--start", "+9s", "--speed", "10"}));
    EXPECT_TRUE(again.shows("note: noted while replaying"));
}

TEST_F(tToolReplayTest, takesKeysAgainHoweverOftenAndHoweverItWasStopped)
{
    tTerminalProcess terminal(tool({"replay", record(400, 1000)}));
    ASSERT_TRUE(terminal.shows("q ends"));
    ASSERT_TRUE(terminal.shows(" 1x"));
    int speed = 1;
    for (const std::string lines : {"whole", "whole", "raw"})
    {
        lines == "raw" ? terminal.stop() : terminal.press("\x1a");  // Ctrl-Z
        ASSERT_TRUE(terminal.shows("stopped, lines " + lines));
        ASSERT_TRUE(terminal.shows(" " + std::to_string(speed) + "x"));
        terminal.press("+");
        ASSERT_TRUE(terminal.shows(" " + std::to_string(++speed) + "x"));
    }
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

TEST(tPaceTest, stepsFromAnySpeedToTheNextOne)
{
    using session::tPace;
    EXPECT_EQ(tPace(3.7).faster().factor(), 4.0);
    EXPECT_EQ(tPace(3.7).slower().factor(), 3.0);
    EXPECT_EQ(tPace(1.0).slower().factor(), 0.5);
    EXPECT_EQ(tPace(1.0).slower().faster().factor(), 1.0);
    EXPECT_EQ(tPace(0.05).slower().factor(), 0.05);
    EXPECT_EQ(tPace(5000.0).faster().factor(), 5000.0);
}

TEST(tRecordedClockTest, followsSpeedAndPauses)
{
    using namespace std::chrono_literals;
    const session::tRecordedClock::tTime start{};
    session::tRecordedClock clock;
    clock.set(1000, start);
    clock.setSpeed(2.5, start + 100ms);
    EXPECT_EQ(clock.at(start + 200ms), 1350u);
    clock.setPaused(true, start + 200ms);
    EXPECT_EQ(clock.at(start + 1h), 1350u);
    clock.setPaused(false, start + 1h);
    EXPECT_EQ(clock.at(start + 1h + 4ms), 1360u);
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
