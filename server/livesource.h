// tLiveSource: a radar on the network, as batches for any number of viewers: each is encoded once.
//
// Threads  datagrams come on the receiver's thread; a thread of its own makes a batch of what has come every 30 ms.
#ifndef KESTOVA_SERVER_LIVESOURCE_H
#define KESTOVA_SERVER_LIVESOURCE_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "UdpSocket/transport.h"
#include "common/worker.h"
#include "server/livebatch.h"
#include "server/picturefeed.h"
#include "server/radars.h"
#include "server/streammeter.h"
#include "sessions/record/streamgroups.h"

namespace server
{
class iLiveSink
{
public:
    virtual ~iLiveSink() = default;
    virtual void onLive(const tBatch& batch) = 0;  // must not wait
};

// Any thread.
class tLiveSource
{
public:
    // Joins the radar's groups. Throws recordings::tFailure if it has none, or there is no interface.
    tLiveSource(const tServeOptions& options, const tRadarName& radar, tRadars& radars, std::uint32_t source);
    ~tLiveSource();
    tLiveSource(const tLiveSource&) = delete;
    tLiveSource& operator=(const tLiveSource&) = delete;

    // The sink gets the last turn at once, then what comes. After remove() no call is under way.
    void add(iLiveSink& sink);
    void remove(iLiveSink& sink);

    std::uint32_t source() const { return m_source; }
    struct tState
    {
        std::uint64_t lastMs = 0;  // of the last spoke; 0 for none
        bool isWhole = false;
        std::optional<std::uint64_t> missing;
    };
    tState state() const;
    // The messages "streams", "own" and "targets", without their type.
    tJson streams();
    tJson own() const;
    tJson targets() const;

private:
    class tGroup : public net::iDatagramListener
    {
    public:
        tGroup(tLiveSource& owner, const session::tStreamGroup& group) : stream(group), m_owner(owner) {}
        void OnDatagram(const net::tReceivedDatagram& datagram) override { m_owner.take(*this, datagram); }
        const session::tStreamGroup stream;

    private:
        tLiveSource& m_owner;
    };

    void join();
    void take(const tGroup& group, const net::tReceivedDatagram& datagram);
    void flush();
    void keep(const tBatch& batch);
    void run();

    const tServeOptions& m_options;
    const tRadarName m_radar;
    tRadars& m_radars;
    const std::uint32_t m_source;
    std::vector<std::unique_ptr<tGroup>> m_groups;
    mutable std::mutex m_mutex;
    tBatchBuilder m_builder;  // guarded by m_mutex, and all below
    tPictureFeed m_feed;
    tStreamMeter m_meter;
    std::set<iLiveSink*> m_sinks;
    std::deque<tBatch> m_turn;  // the last one
    double m_turns = 0;         // in it
    std::size_t m_bytes = 0;    // in it
    std::uint64_t m_number = 0, m_lastMs = 0, m_heardMs = 0;
    std::vector<std::unique_ptr<net::iDatagramSource>> m_sources;  // behind what their thread uses
    tWorker m_worker;
};

// Keeps one source for each radar that is looked at. Any thread.
class tLiveHub
{
public:
    tLiveHub(const tServeOptions& options, tRadars& radars) : m_options(options), m_radars(radars) {}

    std::shared_ptr<tLiveSource> open(const tRadarName& radar);
    std::uint32_t nextSource() { return ++m_sourceCnt; }  // a number that no other source has

private:
    const tServeOptions& m_options;
    tRadars& m_radars;
    std::atomic<std::uint32_t> m_sourceCnt{0};
    std::mutex m_mutex;
    std::map<std::string, std::weak_ptr<tLiveSource>> m_sources;  // guarded by m_mutex
};
}  // namespace server

#endif
