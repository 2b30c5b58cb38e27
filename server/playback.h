// tPlayback: one picture of a viewer: a recording at its own clock, or a radar as it is now.
//
// Shapes   each opening is a source of its own, each jump an epoch. After a jump the turn before the place comes first,
//          then the clock goes on.
// Threads  one of its own, which does everything in the order in which it was asked for.
#ifndef KESTOVA_SERVER_PLAYBACK_H
#define KESTOVA_SERVER_PLAYBACK_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "common/worker.h"
#include "server/archive.h"
#include "server/filefacts.h"
#include "server/livesource.h"
#include "server/picturefeed.h"
#include "server/recordwalk.h"
#include "server/streammeter.h"
#include "server/viewermessage.h"
#include "server/viewerqueue.h"

namespace server
{
// Where batches and texts go.
class iPlaybackSink
{
public:
    virtual ~iPlaybackSink() = default;
    virtual void onBatch(std::size_t picture, const tBatch& batch) = 0;
    virtual void onMessage(std::string text) = 0;
    virtual tViewerQueue& queue() = 0;
};

struct tPlaybackContext
{
    const tServeOptions& options;
    tArchive& archive;
    tRadars& radars;
    tLiveHub& hub;
    tFactsCache& facts;
};

class tPlayback : private iLiveSink
{
public:
    tPlayback(std::size_t picture, const tPlaybackContext& context, iPlaybackSink& sink);
    ~tPlayback() override;
    tPlayback(const tPlayback&) = delete;
    tPlayback& operator=(const tPlayback&) = delete;

    void ask(const tViewerMessage& message);  // any thread

private:
    using tSteady = std::chrono::steady_clock;

    void onLive(const tBatch& batch) override;

    void run();
    void apply(const tViewerMessage& message);
    void applyGuarded(const tViewerMessage& message);
    // What is under way is of no use any more: another place is asked for.
    bool isOvertaken() const { return m_jumps != 0 || !m_worker.running(); }

    void open(const tViewerMessage& message);
    void openRecording(const std::string& id, std::uint64_t atMs);
    void goLive();
    void goLiveAgain();
    void leaveLive();
    void shiftTime(std::uint64_t atMs);  // from a live radar into the recording that is being made of it
    void seek(std::uint64_t ms);
    void setPlaying(bool on);
    void setSpeed(double speed);

    void jump(std::uint64_t ms);
    std::uint64_t turnStart(std::uint64_t ms, double turns, double& covered);
    void prelude(std::uint64_t ms);
    void play();
    void playedOut();
    std::uint64_t clockMs() const;
    void setClock(std::uint64_t ms);
    bool feedNext();
    void flush(std::uint32_t flags);
    bool hasRoom() const;  // the viewer has taken most of what it was sent
    bool waitForRoom();

    void step(const tViewerMessage& message);
    void stepForward(const tViewerMessage& message);
    std::uint64_t placeBefore(const tViewerMessage& message);
    std::optional<std::uint64_t> markAt(const tViewerMessage& message);

    void report();
    void sendState();
    void sendError(const std::string& code, const std::string& text);

    const std::size_t m_picture;
    const tPlaybackContext m_context;
    iPlaybackSink& m_sink;
    std::string m_radar, m_id;  // what is shown
    std::shared_ptr<tLiveSource> m_live;
    std::unique_ptr<tRecordWalk> m_walk;
    std::unique_ptr<tPictureFeed> m_feed;
    tLayouts m_layouts;
    tStreamMeter m_meter;
    tBatchBuilder m_builder;
    std::uint32_t m_source = 0, m_epoch = 0;
    std::uint64_t m_number = 0;
    bool m_playing = false, m_isWhole = false;
    double m_turns = 0;  // since the jump
    double m_speed = 1;  // 0: as fast as the viewer takes it
    std::uint64_t m_timeMs = 0, m_clockMs = 0;
    tSteady::time_point m_clockSet{}, m_flushed{}, m_reported{}, m_looked{};
    std::optional<tViewerMessage::tLoop> m_loop;
    bool m_isSending = true;              // what is fed: false before the turn that is shown
    std::size_t m_fedSpokes = 0;          // ever
    std::deque<tViewerMessage> m_queue;   // guarded by the lock of m_worker
    std::atomic<std::size_t> m_jumps{0};  // in it
    tWorker m_worker;
};
}  // namespace server

#endif
