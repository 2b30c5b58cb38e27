// The files that lie beside a data file and go with it, and what can be seen of a data file without opening it.
//
// Shapes   NAME.data and NAME.tar.data, its compressed form, have the same companions: the sheet NAME.json and the fine
//          times NAME.fine. A name that does not end in "data" behind its last dot gets these endings appended.
// Threads  any.
#ifndef KESTOVA_COMPANIONS_H
#define KESTOVA_COMPANIONS_H

#include <string>

#include "UdpSocket/kestovaapi.h"

namespace storage
{
KESTOVA_API std::string sheetName(const std::string& dataFile);
KESTOVA_API std::string fineTimesName(const std::string& dataFile);

// Returns whether the file's sheet says that nothing may delete it. Reads only the beginning of the sheet, where `kept`
// is the second key; follows no link.
KESTOVA_API bool isKept(const std::string& dataFile);

// Returns whether a living process records into the file: it is unfinished and its writer holds its lock. Always false
// on a file system without locks.
KESTOVA_API bool isBeingWritten(const std::string& dataFile);

// Returns whether a process plays the file, or the recording that begins with it. Always false on a file system without
// locks.
KESTOVA_API bool isBeingPlayed(const std::string& dataFile);

// Removes the file, then its companions, which stay where the file's other form exists. Returns false, with errno set,
// if the file cannot be removed; a companion that cannot be removed stays.
KESTOVA_API bool removeDataFile(const std::string& dataFile);
}  // namespace storage

#endif
