// tConsole: the output of a command: results to standard output, everything else to standard error.
//
// Shapes   a note is always written, an ordinary line only without --quiet. A line clears the progress line, which is
//          drawn again below it. The libraries' own lines come here, too, and are dropped without --verbose. Where
//          standard error is the system's journal, each line begins with its urgency: "<4>".
// Owner    one a process. Threads of the libraries may outlive it; their lines are dropped then.
// Threads  lines from any thread, everything else from one.
#ifndef KESTOVA_TOOLS_SHELL_CONSOLE_H
#define KESTOVA_TOOLS_SHELL_CONSOLE_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

#include "UdpSocket/consolesink.h"

namespace tool
{
enum class eVolume
{
    eQuiet,   // no progress, no ordinary lines
    eNormal,  // no lines of the libraries
    eVerbose
};

// As syslog counts.
enum class eUrgency
{
    eError = 3,
    eWarning = 4,
    eInformation = 6
};

class tConsole : private Kestova::iConsoleSink
{
public:
    tConsole();
    ~tConsole() override;
    tConsole(const tConsole&) = delete;
    tConsole& operator=(const tConsole&) = delete;

    void setVolume(eVolume volume) { m_volume = volume; }

    // Buffers results and writes them in pieces of 64 KiB. Throws tReaderGone for a closed pipe, tFailure for any other
    // error. flush() also ends the progress line.
    void print(std::string_view text);
    void flush();

    // Returns the descriptor of the results, for a command that writes bytes of its own there and prints nothing.
    int results() const { return m_results; }

    // Writes one line to standard error: an error or a warning.
    void note(std::string_view line, eUrgency urgency = eUrgency::eWarning);
    // The same for an ordinary line: what the command does.
    void inform(std::string_view line);

    // Returns true at most five times a second, and only if standard error is a terminal, where progress() writes.
    bool progressDue();
    // Replaces the progress line, cut to the terminal's width; or several lines, as many as the terminal has room for.
    void progress(std::string_view text);
    std::size_t terminalWidth() const;   // in characters
    std::size_t terminalHeight() const;  // in lines
    void ring();                         // the terminal's bell; nothing elsewhere

private:
    void OnConsoleText(Kestova::eConsoleStream stream, const char* text, std::size_t len) override;
    void writeLine(std::string_view line, eUrgency urgency);
    std::string clearProgress();
    std::string drawProgress();
    void endProgress();

    int m_results = -1;
    std::string m_pending;
    bool m_terminal = false;
    bool m_journal = false;
    std::chrono::steady_clock::time_point m_nextProgress{};
    // Read without m_mutex, which may be held for long while a terminal is stopped: no thread of a library waits for
    // it.
    std::atomic<eVolume> m_volume{eVolume::eNormal};
    std::mutex m_mutex;         // held while writing to standard error
    std::string m_progress;     // guarded by m_mutex: what is shown, empty for nothing
    std::size_t m_drawn = 1;    // guarded by m_mutex: its lines on the terminal, the cursor is in the last one
    std::string m_libraryText;  // guarded by m_mutex: of a line whose end is still missing
};
}  // namespace tool

#endif
