#include "UdpSocket/consoleprint.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "UdpSocket/consolesink.h"
#include "common/observers.h"

namespace Kestova
{
namespace
{
// Never destroyed: threads of the libraries may print while the process ends.
tObserverGate<iConsoleSink>& gate()
{
    static auto& s_gate = *new tObserverGate<iConsoleSink>;
    return s_gate;
}

[[gnu::format(printf, 1, 0)]] std::string formatted(const char* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    char line[512];
    const int len = std::vsnprintf(line, sizeof line, format, arguments);
    std::string text(line, len > 0 ? std::min(static_cast<std::size_t>(len), sizeof line - 1) : 0);
    if (len >= static_cast<int>(sizeof line))
    {
        text.resize(static_cast<std::size_t>(len));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

// Passes the text to the sink, or prints it where there is none.
void emit(eConsoleStream stream, std::string_view text)
{
    bool taken = false;
    gate().through([&](iConsoleSink& sink) {
        sink.OnConsoleText(stream, text.data(), text.size());
        taken = true;
    });
    if (!taken)
        std::fwrite(text.data(), 1, text.size(), stream == eConsoleOutput ? stdout : stderr);
}
}  // namespace

void SetConsoleSink(iConsoleSink* sink)
{
    gate().set(sink);
}

void console::print(const char* format, ...)
{
    const int error = errno;
    va_list arguments;
    va_start(arguments, format);
    if (gate().open())
        emit(eConsoleOutput, formatted(format, arguments));
    else
        std::vprintf(format, arguments);
    va_end(arguments);
    errno = error;
}

void console::printError(const char* format, ...)
{
    const int error = errno;
    va_list arguments;
    va_start(arguments, format);
    if (gate().open())
        emit(eConsoleError, formatted(format, arguments));
    else
        std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    errno = error;
}

void console::printSystemError(const char* what)
{
    const int error = errno;
    if (gate().open())
        emit(eConsoleError, std::string(what) + ": " + std::strerror(error) + "\n");
    else
        std::perror(what);
    errno = error;
}

void console::write(std::string_view text)
{
    const int error = errno;
    emit(eConsoleOutput, text);
    errno = error;
}
}  // namespace Kestova
