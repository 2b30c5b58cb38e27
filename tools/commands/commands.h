// The commands of kestova. A new one is named in both lists below.
#ifndef KESTOVA_TOOLS_COMMANDS_COMMANDS_H
#define KESTOVA_TOOLS_COMMANDS_COMMANDS_H

#include "tools/shell/command.h"

namespace tool
{
tAddCommand addSimulate, addRecord, addReplay, addInfo, addDump, addLs, addVerify, addRecover, addDiff, addCut,
    addMerge, addNote, addKeep, addPrune, addCheck, addMonitor, addCompress, addExpand, addPcap, addExport, addPicture,
    addLayoutCommand, addServe;

// In the order of the help.
inline constexpr tAddCommand* cCommands[] = {
    addSimulate, addCheck,  addMonitor, addRecord,        addReplay, addLs,   addInfo,  addDump,     addVerify,
    addRecover,  addDiff,   addCut,     addMerge,         addNote,   addKeep, addPrune, addCompress, addExpand,
    addPcap,     addExport, addPicture, addLayoutCommand,
#ifdef KESTOVA_SERVER
    addServe,
#endif
};
}  // namespace tool

#endif
