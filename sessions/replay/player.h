// iPlayer: what plays a recording: to the terminal or onto the network.
#ifndef KESTOVA_SESSIONS_REPLAY_PLAYER_H
#define KESTOVA_SESSIONS_REPLAY_PLAYER_H

#include <cstdint>
#include <memory>
#include <string>

#include "KestovaRecordings/streamchoice.h"
#include "sessions/replay/addressmap.h"
#include "sessions/replay/replaysession.h"

namespace tool
{
// Operations as in storage::tDataStorageIO; the session is told what comes and must outlive the player.
class iPlayer
{
public:
    virtual ~iPlayer() = default;
    virtual void open(const std::string& path) = 0;
    virtual bool pause(bool on) = 0;
    virtual void setSpeed(double rate) = 0;
    virtual bool jump(double fraction) = 0;
    virtual void close() = 0;
    // Records that were due and could not be played: not to be read, or no packages where only packages can be sent.
    virtual std::uint64_t unplayed() const = 0;
    virtual std::uint64_t sent() const { return 0; }     // datagrams
    virtual std::uint64_t refused() const { return 0; }  // by the network
};

std::unique_ptr<iPlayer> makeTerminalPlayer(tReplaySession& session, const tStreamChoice& streams,
                                            const std::string& suffix);
std::unique_ptr<iPlayer> makeNetworkPlayer(tReplaySession& session, const tStreamChoice& streams,
                                           const std::string& suffix, const std::string& localIp,
                                           const tAddressMap& map);
}  // namespace tool

#endif
