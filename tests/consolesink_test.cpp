// Where the libraries' lines go, and what the tool's console makes of them on a terminal.
#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <mutex>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "KestovaStorage/datastorageio.h"
#include "UdpSocket/consoleprint.h"
#include "UdpSocket/consolesink.h"
#include "tools/shell/console.h"

namespace
{
using namespace Kestova;

class tSink : public iConsoleSink
{
public:
    tSink() { SetConsoleSink(this); }
    ~tSink() override { SetConsoleSink(nullptr); }
    void OnConsoleText(eConsoleStream stream, const char* data, std::size_t len) override
    {
        const std::lock_guard lock(m_mutex);
        text += (stream == eConsoleError ? "E:" : "O:") + std::string(data, len);
    }

    std::string text;

private:
    std::mutex m_mutex;
};

// One line of each kind.
void printAll(const std::string& longText)
{
    console::print("%s\r\n", longText.c_str());
    console::write("text");
    console::printError("%d\n", 7);
    errno = ENOSPC;
    console::printSystemError("file");
}

// What `work` writes to its standard error, a terminal of 20 columns.
std::string onTerminal(void (*work)(tool::tConsole&))
{
    const winsize size{24, 20, 0, 0};
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0)
    {
        {
            tool::tConsole console;
            work(console);
        }
        ::_exit(0);
    }
    std::string text;
    char bytes[256];
    for (ssize_t got = 0; (got = ::read(terminal, bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<std::size_t>(got));
    ::waitpid(child, nullptr, 0);
    ::close(terminal);
    return text;
}
}  // namespace

TEST(tConsoleSinkTest, receivesWhatIsOtherwisePrinted)
{
    const std::string longText(2000, 'x');
    const std::string out = longText + "\r\ntext", err = "7\nfile: No space left on device\n";
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        tSink sink;
        printAll(longText);
        EXPECT_EQ(sink.text, "O:" + longText + "\r\nO:text" + "E:7\nE:file: No space left on device\n");
        storage::tDataStorageIO::GetDiskFreeSize_MB("/");
        EXPECT_NE(sink.text.find("O:Disk Total Size: "), std::string::npos);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    printAll(longText);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), out);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), err);
}

TEST(tConsoleTest, drawsTheProgressLineAgainBelowEveryLine)
{
    EXPECT_EQ(onTerminal([](tool::tConsole& console) {
                  console.inform("begins");
                  console.progress("a progress line that is too long");
                  console.note("something");
                  Kestova::console::print("of a library\r\n");
              }),
              "begins\r\n\ra progress line tha\x1b[K\r\x1b[Ksomething\r\n\ra progress line tha\x1b[K\r\x1b[K");
}

TEST(tConsoleTest, drawsATableOverItselfInTheRoomOfTheTerminal)
{
    EXPECT_EQ(onTerminal([](tool::tConsole& console) {
                  console.progress("head\na line that is much too long");
                  console.progress("head\n1\n2");
                  console.note("between");
                  console.progress("head");
              }),
              "\rhead\x1b[K\r\na line that is much\x1b[K"
              "\r\x1b[1Ahead\x1b[K\r\n1\x1b[K\r\n2\x1b[K"
              "\r\x1b[2A\x1b[Jbetween\r\n\rhead\x1b[K\r\n1\x1b[K\r\n2\x1b[K"
              "\r\x1b[2Ahead\x1b[K\x1b[J\r\x1b[K");
    const std::string tall = onTerminal([](tool::tConsole& console) { console.progress(std::string(100, '\n')); });
    EXPECT_EQ(std::count(tall.begin(), tall.end(), '\n'), 22);  // 23 lines of the terminal's 24
}

TEST(tConsoleTest, showsLinesOfTheLibrariesOnlyIfVerboseAndOnlyNotesIfQuiet)
{
    EXPECT_EQ(onTerminal([](tool::tConsole& console) {
                  console.setVolume(tool::eVolume::eVerbose);
                  Kestova::console::write("one l");
                  Kestova::console::print("ine\r\ntwo\n");
              }),
              "one line\r\ntwo\r\n");
    EXPECT_EQ(onTerminal([](tool::tConsole& console) {
                  console.setVolume(tool::eVolume::eQuiet);
                  console.inform("ordinary");
                  EXPECT_FALSE(console.progressDue());
                  console.progress("progress");
                  console.note("warning");
              }),
              "warning\r\n");
}
