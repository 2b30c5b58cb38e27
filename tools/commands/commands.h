// The commands of kestova. A new one is named in both lists below.
#ifndef KESTOVA_TOOLS_COMMANDS_COMMANDS_H
#define KESTOVA_TOOLS_COMMANDS_COMMANDS_H

#include "tools/shell/command.h"

namespace tool
{
tAddCommand addSimulate, addRecord, addReplay, addInfo, addDump, addCompress, addExpand, addPcap, addExport, addPicture;

// In the order of the help.
inline constexpr tAddCommand* cCommands[] = {addSimulate, addRecord, addReplay, addInfo,   addDump,
                                             addCompress, addExpand, addPcap,   addExport, addPicture};
}  // namespace tool

#endif
