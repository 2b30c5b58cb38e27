// tConsole: the output of a command: results to standard output, everything else to standard error.
//
// The libraries print their own lines to standard output. The console therefore duplicates it for results and points
// descriptor 1 at standard error before anything else runs.
#ifndef KESTOVA_TOOLS_SHELL_CONSOLE_H
#define KESTOVA_TOOLS_SHELL_CONSOLE_H

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace tool
{
// One thread at a time.
class tConsole
{
public:
    tConsole();
    ~tConsole();
    tConsole(const tConsole&) = delete;
    tConsole& operator=(const tConsole&) = delete;

    // Buffers results and writes them in pieces of 64 KiB. Throws tReaderGone for a closed pipe, tFailure for any other
    // error.
    void print(std::string_view text);
    void flush();

    // Writes one line to standard error.
    void note(std::string_view line);

    // Returns true at most five times a second, and only if standard error is a terminal, where progress() writes.
    bool progressDue();
    // Replaces the progress line, cut to the terminal's width.
    void progress(std::string_view text);
    std::size_t terminalWidth() const;  // in characters

private:
    void clearProgress();

    int m_results = -1;
    std::string m_pending;
    bool m_terminal = false;
    bool m_progressShown = false;
    std::chrono::steady_clock::time_point m_nextProgress{};
};
}  // namespace tool

#endif
