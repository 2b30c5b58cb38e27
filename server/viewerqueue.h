// tViewerQueue: what waits for one viewer: texts, and batches, which are thinned where the viewer is slow.
#ifndef KESTOVA_SERVER_VIEWERQUEUE_H
#define KESTOVA_SERVER_VIEWERQUEUE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "server/http.h"
#include "server/livebatch.h"

namespace server
{
constexpr std::size_t cPictures = 2;

// Holds at most one turn of each picture, and 4 MiB in all: the oldest whole batch goes first. Any thread.
class tViewerQueue
{
public:
    void addText(std::string text);  // drops the oldest of more than 256
    // Returns how many spokes were dropped for it.
    std::size_t addBatch(std::size_t picture, const tBatch& batch);
    void clear(std::size_t picture);  // its batches: they are of the past
    bool next(tFrame& frame);         // texts first

    struct tWaiting
    {
        std::size_t bytes;  // of all pictures
        double turns;       // of this one
    };
    tWaiting waiting(std::size_t picture) const;
    std::uint64_t thinned(std::size_t picture) const;

private:
    struct tWaitingBatch
    {
        std::size_t picture;
        tBatch batch;
    };
    void drop(const std::deque<tWaitingBatch>::iterator& batch);

    mutable std::mutex m_mutex;
    std::deque<std::string> m_texts;  // guarded by m_mutex, and all below
    std::deque<tWaitingBatch> m_batches;
    std::size_t m_bytes = 0;
    std::array<double, cPictures> m_turns{};
    std::array<std::uint64_t, cPictures> m_thinned{};
};
}  // namespace server

#endif
