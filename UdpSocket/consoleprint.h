// Prints the console lines of the libraries: to the sink of UdpSocket/consolesink.h, or as printf and perror do.
//
// Every library prints through these functions. Any thread. They leave errno as it was.
//
// For the libraries of this project; not installed.
#ifndef KESTOVA_CONSOLEPRINT_H
#define KESTOVA_CONSOLEPRINT_H

#include <string_view>

#include "UdpSocket/kestovaapi.h"

namespace Kestova::console
{
// As printf: on standard output.
[[gnu::format(printf, 1, 2)]] KESTOVA_API void print(const char* format, ...);
// As fprintf on standard error.
[[gnu::format(printf, 1, 2)]] KESTOVA_API void printError(const char* format, ...);
// As perror: `what`, the reason in errno.
KESTOVA_API void printSystemError(const char* what);
// Text as it is, on standard output.
KESTOVA_API void write(std::string_view text);
}  // namespace Kestova::console

#endif
