// The console lines of the libraries, which programs in other languages do not want.
#ifndef KESTOVA_C_QUIET_H
#define KESTOVA_C_QUIET_H

#include <string>

namespace binding
{
// From now on no library of this process prints. Any thread.
void silenceConsole();
// Returns the last line that would have gone to standard error, without its end.
std::string lastConsoleError();
}  // namespace binding

#endif
