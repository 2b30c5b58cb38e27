// iPlayer: plays a recording, to nobody or onto the network.
#ifndef KESTOVA_SESSIONS_REPLAY_PLAYER_H
#define KESTOVA_SESSIONS_REPLAY_PLAYER_H

#include <cstdint>
#include <memory>
#include <string>

#include "KestovaRecordings/streamchoice.h"
#include "sessions/replay/addressmap.h"
#include "sessions/replay/replayprogress.h"

namespace session
{
// Operations as in storage::tDataStorageIO. Reports to a tReplayProgress, which must outlive the player.
class iPlayer
{
public:
    virtual ~iPlayer() = default;
    virtual void open(const std::string& path) = 0;
    virtual bool pause(bool on) = 0;
    virtual void setSpeed(double rate) = 0;
    virtual bool jump(double fraction) = 0;
    virtual void close() = 0;
    // Records that were due and could not be played: unreadable, or no packages while only packages can be sent.
    virtual std::uint64_t unplayed() const = 0;
    virtual std::uint64_t sent() const { return 0; }     // datagrams
    virtual std::uint64_t refused() const { return 0; }  // by the network
};

// Records are counted and go nowhere; what is no package counts as raw.
std::unique_ptr<iPlayer> makeCountingPlayer(tReplayProgress& progress, const recordings::tStreamChoice& streams,
                                            const std::string& suffix);
// localIp dotted, or empty: the system chooses.
std::unique_ptr<iPlayer> makeNetworkPlayer(tReplayProgress& progress, const recordings::tStreamChoice& streams,
                                           const std::string& suffix, const std::string& localIp,
                                           const tAddressMap& map);
}  // namespace session

#endif
