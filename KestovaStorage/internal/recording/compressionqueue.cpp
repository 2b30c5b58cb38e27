#include "KestovaStorage/internal/recording/compressionqueue.h"

#include <cstdio>
#include <new>
#include <system_error>
#include <utility>

#include "KestovaStorage/internal/conversion/filecoding.h"
#include "KestovaStorage/internal/disk/paths.h"

namespace storage
{
namespace
{
void report(const std::string& path, const std::string& reason)
{
    std::fprintf(stderr, "%s: not compressed: %s\n", path.c_str(), reason.c_str());
}
}  // namespace

std::unique_ptr<huffman::tSegmentEncoder> tCompressionQueue::newEncoder()
{
    return std::make_unique<huffman::tSegmentEncoder>();
}

tCompressionQueue::~tCompressionQueue()
{
    {
        tWorker::tLock held = m_worker.lock();
        m_worker.waitUntil(held, tWorker::tClock::time_point::max(), [this] { return m_jobs.empty() && !m_busy; });
    }
    m_worker.stop();
}

void tCompressionQueue::add(const std::string& path, std::unique_ptr<huffman::tSegmentEncoder> encoder)
try
{
    m_worker.wake([&] { m_jobs.push_back({path, std::move(encoder)}); });
    if (!m_worker.running())
        m_worker.start([this] { work(); });
}
catch (const std::system_error& error)
{
    report(path, error.what());
    cancel();
}

std::uint32_t tCompressionQueue::pending() const
{
    const tWorker::tLock held = m_worker.lock();
    return static_cast<std::uint32_t>(m_jobs.size()) + (m_busy ? 1 : 0);
}

void tCompressionQueue::cancel()
{
    m_worker.wake([this] {
        ++m_cancelled;
        m_jobs.clear();
    });
}

void tCompressionQueue::work()
{
    for (;;)
    {
        tJob job;
        unsigned int cancelled = 0;
        {
            tWorker::tLock held = m_worker.lock();
            if (!m_worker.wait(held, [this] { return !m_jobs.empty(); }))
                return;
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
            m_busy = true;
            cancelled = m_cancelled;
        }
        tryCompress(job, cancelled);
        m_worker.wake([this] { m_busy = false; });
    }
}

void tCompressionQueue::tryCompress(tJob& job, unsigned int cancelled)
try
{
    if (const tStatus status = compress(job, cancelled); !status)
        report(job.path, status.text());
}
catch (const std::bad_alloc&)
{
    report(job.path, "not enough memory");
}

// Removes the plain file once every byte of the compressed one is on the disk.
// Kept: removes it also if the output cannot be created.
tStatus tCompressionQueue::compress(tJob& job, unsigned int cancelled)
{
    tStatus failure;
    const auto plain = isComplete(job) ? tDataFileReader::open(job.path, &failure) : nullptr;
    if (!plain || !plain->finished() || plain->damaged() != 0)
    {
        const char* const why = job.encoder->countedBytes() == 0 ? "it holds no segments" : "it is not complete";
        return failure ? tStatus(tStatus::eCode::eRefused, why) : std::move(failure).of(job.path);
    }
    const std::string name = encodedName(job.path, m_specifySuffix);
    tOutputFile out(name);
    if (!out.isOpen())
    {
        std::remove(job.path.c_str());
        return tStatus(out.status()).of("it is removed, for no output could be made");
    }
    const tProgressFunction progress = [&](std::uint64_t) { return m_cancelled == cancelled; };
    if (tStatus status = encodeFile(*plain, *job.encoder, out, progress, nullptr); !status)
        return status;
    if (!out.commit(name))
        return out.status();
    std::remove(job.path.c_str());
    return {};
}

// A file is complete if its payload has as many bytes as were counted.
bool tCompressionQueue::isComplete(const tJob& job) const
{
    return paths::exists(job.path) &&
           static_cast<std::uint64_t>(paths::fileSize(job.path.c_str())) == cPayloadPos + job.encoder->countedBytes();
}
}  // namespace storage
