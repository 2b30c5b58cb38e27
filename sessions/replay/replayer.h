// iReplayer: replays a recording, onto the network or only to count it.
#ifndef KESTOVA_SESSIONS_REPLAY_REPLAYER_H
#define KESTOVA_SESSIONS_REPLAY_REPLAYER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/streamchoice.h"
#include "KestovaStorage/replaysource.h"
#include "sessions/replay/addressmap.h"
#include "sessions/replay/cat240output.h"
#include "sessions/replay/lateness.h"
#include "sessions/replay/replayprogress.h"

namespace session
{
// Operations as in storage::tDataStorageIO. Reports to a tReplayProgress and a tLateness, which outlive the replayer.
class iReplayer
{
public:
    virtual ~iReplayer() = default;
    virtual void open(const std::vector<std::string>& files) = 0;  // one at least
    virtual bool pause(bool on) = 0;
    virtual void setSpeed(double factor) = 0;
    virtual bool jump(double fraction) = 0;
    virtual void setEnd(std::uint64_t timeMs) = 0;
    virtual void setTopSpeed(bool on) = 0;
    virtual void setSource(storage::iReplaySource* source) = 0;  // before open()
    virtual void close() = 0;
    // Returns how many records were due and could not be played: unreadable, or, on the network, no package.
    virtual std::uint64_t unplayed() const = 0;
    virtual std::uint64_t sent() const { return 0; }     // datagrams
    virtual std::uint64_t refused() const { return 0; }  // by the network
    virtual recordings::tCat240Tally cat240() const { return {}; }
};

// Returns a replayer that counts records and sends nothing; a record that is no package counts as raw.
std::unique_ptr<iReplayer> makeCountingReplayer(tReplayProgress& progress, tLateness& lateness,
                                                const recordings::tStreamChoice& streams, const std::string& suffix);
// Returns a replayer that sends. `localIp` is dotted, or empty: the system chooses. `cat240` says where spokes go in
// the public standard; without it they go out as they were recorded.
std::unique_ptr<iReplayer> makeNetworkReplayer(tReplayProgress& progress, tLateness& lateness,
                                               const recordings::tStreamChoice& streams, const std::string& suffix,
                                               const std::string& localIp, const tAddressMap& map,
                                               const std::optional<tReplayedCat240>& cat240);
}  // namespace session

#endif
