#include "tools/shell/console.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "tools/shell/exitstatus.h"

namespace tool
{
using recordings::tFailure;

namespace
{
constexpr std::size_t cPieceSize = 64 * 1024;
constexpr std::chrono::milliseconds cProgressPeriod{200};

// In place of a missing standard descriptor, the next opened file would receive its output.
void openMissingStandardDescriptors()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
    {
        if (fcntl(fd, F_GETFD) == -1 && open("/dev/null", O_RDWR) == -1)
            _exit(eFailed);
    }
}

// Whether standard error is what JOURNAL_STREAM names: a program that the service inherited the variable from may have
// redirected it.
bool isJournal()
{
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat file
    {};
    return stream != nullptr && fstat(STDERR_FILENO, &file) == 0 &&
           std::to_string(file.st_dev) + ':' + std::to_string(file.st_ino) == stream;
}

class tNoSink : public Kestova::iConsoleSink
{
public:
    void OnConsoleText(Kestova::eConsoleStream, const char*, std::size_t) override {}
};

// The sink after the end of the command. Never destroyed: threads of the libraries run until the process ends.
tNoSink& noSink()
{
    static auto& s_noSink = *new tNoSink;
    return s_noSink;
}

// Returns the errno of a failed write, 0 for success.
int writeAll(int fd, std::string_view text)
{
    while (!text.empty())
    {
        const ssize_t written = ::write(fd, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return errno;
        if (written > 0)
            text.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}
}  // namespace

tConsole::tConsole()
{
    openMissingStandardDescriptors();
    // A library of the system that prints to standard output must not write into the results.
    m_results = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (m_results == -1 || dup2(STDERR_FILENO, STDOUT_FILENO) == -1)
        _exit(eFailed);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    m_terminal = isatty(STDERR_FILENO) == 1;
    m_journal = isJournal();
    Kestova::SetConsoleSink(this);
}

tConsole::~tConsole()
{
    Kestova::SetConsoleSink(&noSink());
    endProgress();
    close(m_results);
}

void tConsole::print(std::string_view text)
{
    m_pending += text;
    if (m_pending.size() >= cPieceSize)
        flush();
}

void tConsole::flush()
{
    endProgress();
    const int error = writeAll(m_results, m_pending);
    m_pending.clear();
    if (error == EPIPE)
        throw tReaderGone();
    if (error != 0)
        throw tFailure(std::string("cannot write the results: ") + std::strerror(error));
}

void tConsole::note(std::string_view line, eUrgency urgency)
{
    const std::lock_guard lock(m_mutex);
    writeLine(line, urgency);
}

void tConsole::inform(std::string_view line)
{
    if (m_volume != eVolume::eQuiet)
        note(line, eUrgency::eInformation);
}

bool tConsole::progressDue()
{
    const auto now = std::chrono::steady_clock::now();
    if (!m_terminal || m_volume == eVolume::eQuiet || now < m_nextProgress)
        return false;
    m_nextProgress = now + cProgressPeriod;
    return true;
}

void tConsole::progress(std::string_view text)
{
    if (!m_terminal || m_volume == eVolume::eQuiet)
        return;
    const std::lock_guard lock(m_mutex);
    m_progress = text;
    writeAll(STDERR_FILENO, drawProgress());
}

// Passes whole lines on; a report of the libraries may come in pieces.
void tConsole::OnConsoleText(Kestova::eConsoleStream stream, const char* text, std::size_t len)
{
    if (m_volume != eVolume::eVerbose)
        return;
    const eUrgency urgency = stream == Kestova::eConsoleError ? eUrgency::eWarning : eUrgency::eInformation;
    const std::lock_guard lock(m_mutex);
    m_libraryText.append(text, len);
    for (std::size_t end = 0; (end = m_libraryText.find('\n')) != std::string::npos;)
    {
        std::string line = m_libraryText.substr(0, end);
        std::erase(line, '\r');
        writeLine(line, urgency);
        m_libraryText.erase(0, end + 1);
    }
}

// In one write, so that no other process's line comes between. m_mutex is held.
void tConsole::writeLine(std::string_view line, eUrgency urgency)
{
    std::string text = clearProgress();
    const std::string prefix = m_journal ? fmt::format("<{}>", static_cast<int>(urgency)) : "";
    text += prefix;
    for (const char c : line)
    {
        text += c;
        if (c == '\n')
            text += prefix;
    }
    text += '\n';
    if (!m_progress.empty())
        text += drawProgress();
    writeAll(STDERR_FILENO, text);
}

// Returns what takes the progress lines off the terminal. m_mutex is held.
std::string tConsole::clearProgress()
{
    if (m_progress.empty())
        return {};
    const std::size_t above = std::exchange(m_drawn, 1) - 1;
    return above == 0 ? "\r\x1b[K" : fmt::format("\r\x1b[{}A\x1b[J", above);
}

// Returns what draws them, over those that are there. m_mutex is held.
std::string tConsole::drawProgress()
{
    std::string text = m_drawn > 1 ? fmt::format("\r\x1b[{}A", m_drawn - 1) : "\r";
    const std::size_t room = std::max<std::size_t>(terminalHeight(), 2) - 1;
    const std::size_t before = std::exchange(m_drawn, 0);
    for (std::string_view rest = m_progress; m_drawn < room; ++m_drawn)
    {
        const std::size_t end = rest.find('\n');
        text += m_drawn > 0 ? "\n" : "";
        text += std::string(rest.substr(0, end)).substr(0, terminalWidth() - 1) + "\x1b[K";
        if (end == std::string_view::npos)
        {
            ++m_drawn;
            break;
        }
        rest.remove_prefix(end + 1);
    }
    return m_drawn < before ? text + "\x1b[J" : text;
}

void tConsole::endProgress()
{
    const std::lock_guard lock(m_mutex);
    writeAll(STDERR_FILENO, clearProgress());
    m_progress.clear();
}

void tConsole::ring()
{
    if (m_terminal)
        writeAll(STDERR_FILENO, "\a");
}

std::size_t tConsole::terminalWidth() const
{
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return known ? size.ws_col : 80;
}

std::size_t tConsole::terminalHeight() const
{
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 1;
    return known ? size.ws_row : 24;
}
}  // namespace tool
