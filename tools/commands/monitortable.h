// The table of kestova monitor, in the room that there is.
#ifndef KESTOVA_TOOLS_COMMANDS_MONITORTABLE_H
#define KESTOVA_TOOLS_COMMANDS_MONITORTABLE_H

#include <cstddef>
#include <string>
#include <vector>

#include "sessions/monitor/monitorsession.h"

namespace tool
{
// Returns one line a stream below a head, separated by "\n" and without one at the end. Columns are left out, the least
// important first, until lines have at most `width` characters; streams from the end on until there are at most
// `height` lines, and a last line counts those.
std::string monitorTable(const std::vector<session::tMonitoredStream>& streams, std::size_t width, std::size_t height);
}  // namespace tool

#endif
