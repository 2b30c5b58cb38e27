// The mark of a data file that is being played: a read lock that other processes see, and that vanishes with the
// descriptor. It keeps nobody from reading or recording; whoever deletes recordings passes over the file.
//
// Errors   without effect on a file system that has no locks.
// Threads  any.
#ifndef KESTOVA_STORAGE_DATAFILE_PLAYMARK_H
#define KESTOVA_STORAGE_DATAFILE_PLAYMARK_H

#include <string>

#include "common/descriptor.h"

namespace storage
{
void markPlayed(int file);
tDescriptor markPlayed(const std::string& path);  // until the descriptor is closed
bool isMarkedPlayed(const std::string& path);
}  // namespace storage

#endif
