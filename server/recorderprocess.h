// Recorders as processes of their own: started in a session of their own, found again by the lock of their file.
//
// Why      a recorder outlives the server that started it, and a terminal's Ctrl-C; and the server that ends it may be
//          another one.
// Threads  any.
#ifndef KESTOVA_SERVER_RECORDERPROCESS_H
#define KESTOVA_SERVER_RECORDERPROCESS_H

#include <string>
#include <sys/types.h>
#include <vector>

namespace server
{
// Starts a recorder and waits until it records. Returns its folder. Throws recordings::tFailure with what it says if it
// ends before, or does not begin in ten seconds, and is ended then.
std::string startRecorder(const std::vector<std::string>& arguments);

// Ends the recorder that holds the lock of a data file, as Ctrl-C does, and waits until the file is no longer written,
// 30 seconds at most. Throws recordings::tFailure if nobody holds it, it is no recorder of ours, or it may not be
// ended.
void stopRecorder(const std::string& dataFile);

// Takes the exit status of recorders that have ended.
void reapRecorders();
}  // namespace server

#endif
