// Bodies of answers that are streamed: a stretch of a file, and what a thread writes into a pipe.
#ifndef KESTOVA_SERVER_BODIES_H
#define KESTOVA_SERVER_BODIES_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "common/descriptor.h"
#include "server/http.h"

namespace server
{
// One of a few downloads at a time: counts from its making to its end.
class tDownloadSlot
{
public:
    // Throws tRefusal (503) if there are four already.
    explicit tDownloadSlot(std::atomic<int>& downloads);
    ~tDownloadSlot() { --m_downloads; }
    tDownloadSlot(const tDownloadSlot&) = delete;
    tDownloadSlot& operator=(const tDownloadSlot&) = delete;

private:
    std::atomic<int>& m_downloads;
};
using tSlot = std::shared_ptr<tDownloadSlot>;

// Returns the answer for a file, or for the range of it that the request asks for. Throws tRefusal: 404 for no file,
// 416 for a range that it does not have.
tHttpAnswer fileAnswer(const tHttpRequest& request, const std::string& path, tSlot slot);

// Returns the headers of a download; what is not plain in its name is replaced.
tHeaders downloadHeaders(const std::string& type, const std::string& name);

// What `write` puts into its descriptor, which it does on a thread of its own.
class tPipeBody : public iBody
{
public:
    // `write` ends soon after `isCancelled`, or when writing fails with EPIPE. An exception breaks the answer off.
    using tWrite = std::function<void(int descriptor, const std::atomic<bool>& isCancelled)>;
    tPipeBody(tWrite write, tSlot slot);
    ~tPipeBody() override;

    bool next(std::string& chunk) override;

private:
    const tSlot m_slot;
    tDescriptor m_read, m_write;
    std::atomic<bool> m_failed{false}, m_cancelled{false};
    std::thread m_thread;
};
}  // namespace server

#endif
