// tCompressionQueue: compresses the finished files of one storage object, one after the other.
//
// Shapes   a job is one file and the encoder that has counted its segments while it was recorded.
// Owner    owns the jobs. Its destruction waits until all are done.
// Threads  one, from the first job on. Every operation may be called from any thread.
// Errors   a file that cannot be compressed stays plain, also where its output opens but cannot be locked; it is
//          removed where its output could not be opened. The reason is reported on standard error.
#ifndef KESTOVA_STORAGE_RECORDING_COMPRESSIONQUEUE_H
#define KESTOVA_STORAGE_RECORDING_COMPRESSIONQUEUE_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "KestovaStorage/internal/codec/segmentcodec.h"
#include "common/status.h"
#include "common/worker.h"

namespace storage
{
class tCompressionQueue
{
public:
    // Is called on the queue's thread for every file that was compressed.
    using tCompressed = std::function<void(const std::string& path, const std::string& result)>;
    tCompressionQueue(const std::string& specifySuffix, tCompressed compressed)
        : m_specifySuffix(specifySuffix), m_compressed(std::move(compressed))
    {}
    ~tCompressionQueue();
    tCompressionQueue(const tCompressionQueue&) = delete;
    tCompressionQueue& operator=(const tCompressionQueue&) = delete;

    // Returns an encoder for the segments of a file that is about to be recorded.
    static std::unique_ptr<iSegmentEncoder> newEncoder();

    // Queues the file at `path`, which is finished and all of whose segments `encoder` has counted.
    void add(const std::string& path, std::unique_ptr<iSegmentEncoder> encoder);
    std::uint32_t pending() const;  // files that wait or are being compressed
    // Cancels the compression under way and drops the waiting jobs: these files stay plain.
    void cancel();

private:
    struct tJob
    {
        std::string path;
        std::unique_ptr<iSegmentEncoder> encoder;
    };

    void work();
    void tryCompress(tJob& job, unsigned int cancelled);
    tStatus compress(tJob& job, unsigned int cancelled);

    const std::string m_specifySuffix;
    const tCompressed m_compressed;
    std::deque<tJob> m_jobs;                   // guarded by m_worker's lock
    bool m_busy = false;                       // guarded by it: one more is being compressed
    std::atomic<unsigned int> m_cancelled{0};  // changed under it: how often cancel() was called
    tWorker m_worker;
};
}  // namespace storage

#endif
