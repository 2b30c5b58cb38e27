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
    m_results = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (m_results == -1 || dup2(STDERR_FILENO, STDOUT_FILENO) == -1)
        _exit(eFailed);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    m_terminal = isatty(STDERR_FILENO) == 1;
}

tConsole::~tConsole()
{
    clearProgress();
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
    clearProgress();
    const int error = writeAll(m_results, m_pending);
    m_pending.clear();
    if (error == EPIPE)
        throw tReaderGone();
    if (error != 0)
        throw tFailure(std::string("cannot write the results: ") + std::strerror(error));
}

void tConsole::note(std::string_view line)
{
    clearProgress();
    writeAll(STDERR_FILENO, std::string(line) + '\n');
}

bool tConsole::progressDue()
{
    const auto now = std::chrono::steady_clock::now();
    if (!m_terminal || now < m_nextProgress)
        return false;
    m_nextProgress = now + cProgressPeriod;
    return true;
}

void tConsole::progress(std::string_view text)
{
    if (!m_terminal)
        return;
    std::string line = "\r";
    line += text.substr(0, terminalWidth() - 1);
    line += "\x1b[K";
    writeAll(STDERR_FILENO, line);
    m_progressShown = true;
}

void tConsole::clearProgress()
{
    if (m_progressShown)
        writeAll(STDERR_FILENO, "\r\x1b[K");
    m_progressShown = false;
}

std::size_t tConsole::terminalWidth() const
{
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return known ? size.ws_col : 80;
}
}  // namespace tool
