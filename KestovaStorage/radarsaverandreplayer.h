// The simplest way to use the library: an application records messages of its own and plays them back, one at a time.
#ifndef KESTOVA_RADARSAVERANDREPLAYER_H
#define KESTOVA_RADARSAVERANDREPLAYER_H

#include <stdint.h>
#include <string>

#include "UdpSocket/kestovaapi.h"

namespace Kestova
{
enum eSaveReplayState : int32_t
{
    eIdle = 0,
    eSaving = 1,
    eReplaying = 2
};

// Must not throw.
class KESTOVA_API iSaveReplayObserver
{
public:
    virtual ~iSaveReplayObserver() = default;
    // The state, after each change and whenever State() is called; on the thread that called. The first call comes from
    // the constructor of tRadarSaverAndReplayer. Do not call State() from inside: it would call here again.
    virtual void UpdateState(eSaveReplayState state) = 0;
    // One replayed message: its place in the recording's time span (0.0 to 1.0), the type it was saved with, and `len`
    // bytes, valid during the call. On the replay thread.
    virtual void UpdateReplayData(double progress, int dataType, const char* data, int len) = 0;
};

class tRadarSaverAndReplayerPrivate;

// Saves or replays, one at a time: an operation that the state does not allow does nothing and returns false.
// Recordings are files ending in ".qvdata". A radar's traffic in a recording is not replayed here, only what SaveData
// wrote.
// Call its operations from one thread; SaveData may be called from any, and what it is given while EndSave runs may be
// dropped.
class KESTOVA_API tRadarSaverAndReplayer
{
public:
    // `observer` may be null, is not owned, and must outlive this object.
    explicit tRadarSaverAndReplayer(iSaveReplayObserver* observer);
    // Ends what is under way without a call to the observer; what was saved is in the file (it waits 5 seconds at
    // most). Never from inside a callback.
    virtual ~tRadarSaverAndReplayer();
    tRadarSaverAndReplayer(const tRadarSaverAndReplayer&) = delete;
    tRadarSaverAndReplayer& operator=(const tRadarSaverAndReplayer&) = delete;

    eSaveReplayState State() const;  // notifies the observer, too

    // Idle: starts a recording in `folder` (ends with "/", or the file is created beside it). Returns false if no file
    // could be created.
    bool StartSaving(const std::string& folder);
    // Saving: records `len` bytes, 0 to 65,494, with the current time. Of `dataType` the low 16 bits are kept. Reports
    // other lengths on standard error and drops them. Bytes are copied; never waits for the disk.
    void SaveData(int dataType, const char* data, int len);
    // Saving: ends the recording when everything saved is in the file (it waits 5 seconds at most).
    void EndSave();

    // Idle: opens a file, or every file below a folder, and plays it at the recorded pace on a thread of its own. The
    // state stays until EndReplay, at the end of the recording too; only a progress of 1.0 marks that end. Returns true
    // also if there is nothing to play. No message comes before UpdateState(eReplaying) has been called; if that call
    // lasts, messages may come before it returns. Opening goes on meanwhile, so it may steer the replay.
    bool StartReplaying(const std::string& path);
    // Replaying: as in storage::tDataStorageIO. Pause and Resume return false until playing has begun.
    bool Pause();
    bool Resume();
    bool Jump(double position);
    void SetSpeed(double speed);       // FastSlowForward
    bool SetExactSpeed(double speed);  // SetSpeed
    // Replaying: no message is reported after it returns; called from inside a callback, that call is the last.
    void EndReplay();

private:
    tRadarSaverAndReplayerPrivate* m_p;
};
}  // namespace Kestova

#endif
