// Where the console lines of the Kestova libraries go: to standard output and standard error unless an application
// sets a sink.
#ifndef KESTOVA_CONSOLESINK_H
#define KESTOVA_CONSOLESINK_H

#include <stddef.h>
#include <stdint.h>

#include "UdpSocket/kestovaapi.h"

namespace Kestova
{
enum eConsoleStream : int32_t
{
    eConsoleOutput = 1,  // would go to standard output
    eConsoleError = 2    // would go to standard error: something failed
};

// Receives the console lines of all Kestova libraries of the process.
class KESTOVA_API iConsoleSink
{
public:
    virtual ~iConsoleSink() = default;
    // `len` bytes as they would be printed, with their line ends ("\n" or "\r\n"); mostly one whole line. Called on the
    // thread that prints, from several threads at the same time, sometimes with a lock of a library held: must be
    // short, must not throw and must not call the libraries. `text` is valid during the call only.
    virtual void OnConsoleText(eConsoleStream stream, const char* text, size_t len) = 0;
};

// Sets the sink, which then receives what would be printed; null prints again. The sink is not owned. When this returns
// no call to an earlier sink is under way, except the one that it is called from. Any thread.
KESTOVA_API void SetConsoleSink(iConsoleSink* sink);
}  // namespace Kestova

#endif
