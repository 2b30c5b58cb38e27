#include "tools/shell/console.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

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

constexpr char cClearLine[] = "\r\x1b[K";

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

void tConsole::note(std::string_view line)
{
    const std::lock_guard lock(m_mutex);
    writeLine(line);
}

void tConsole::inform(std::string_view line)
{
    if (m_volume != eVolume::eQuiet)
        note(line);
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
    writeAll(STDERR_FILENO, progressLine());
}

// Passes whole lines on; a report of the libraries may come in pieces.
void tConsole::OnConsoleText(Kestova::eConsoleStream, const char* text, std::size_t len)
{
    if (m_volume != eVolume::eVerbose)
        return;
    const std::lock_guard lock(m_mutex);
    m_libraryText.append(text, len);
    for (std::size_t end = 0; (end = m_libraryText.find('\n')) != std::string::npos;)
    {
        std::string line = m_libraryText.substr(0, end);
        std::erase(line, '\r');
        writeLine(line);
        m_libraryText.erase(0, end + 1);
    }
}

// In one write, so that no other process's line comes between. m_mutex is held.
void tConsole::writeLine(std::string_view line)
{
    std::string text = m_progress.empty() ? "" : cClearLine;
    text += line;
    text += '\n';
    if (!m_progress.empty())
        text += progressLine();
    writeAll(STDERR_FILENO, text);
}

// m_mutex is held.
std::string tConsole::progressLine() const
{
    return '\r' + m_progress.substr(0, terminalWidth() - 1) + "\x1b[K";
}

void tConsole::endProgress()
{
    const std::lock_guard lock(m_mutex);
    if (!m_progress.empty())
        writeAll(STDERR_FILENO, cClearLine);
    m_progress.clear();
}

std::size_t tConsole::terminalWidth() const
{
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return known ? size.ws_col : 80;
}
}  // namespace tool
