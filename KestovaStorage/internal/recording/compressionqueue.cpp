#include "KestovaStorage/internal/recording/compressionqueue.h"

#include <new>
#include <system_error>
#include <utility>

#include "KestovaStorage/internal/conversion/fileconverter.h"
#include "KestovaStorage/internal/datafile/fileforms.h"
#include "UdpSocket/consoleprint.h"

namespace storage
{
namespace
{
void report(const std::string& path, const std::string& reason)
{
    Kestova::console::printError("%s: not compressed: %s\n", path.c_str(), reason.c_str());
}

// Ends a conversion once cancel() was called.
class tUntilCancelled : public iConversionObserver
{
public:
    tUntilCancelled(const std::atomic<unsigned int>& cancelled, unsigned int before)
        : m_cancelled(cancelled), m_before(before)
    {}
    bool UpdateConversion(tConversionStep, uint64_t, uint64_t) override { return m_cancelled == m_before; }

private:
    const std::atomic<unsigned int>& m_cancelled;
    const unsigned int m_before;
};
}  // namespace

std::unique_ptr<iSegmentEncoder> tCompressionQueue::newEncoder()
{
    return cCompressedForm.newEncoder();
}

tCompressionQueue::~tCompressionQueue()
{
    {
        tWorker::tLock held = m_worker.lock();
        m_worker.waitUntil(held, tWorker::tClock::time_point::max(), [this] { return m_jobs.empty() && !m_busy; });
    }
    m_worker.stop();
}

void tCompressionQueue::add(const std::string& path, std::unique_ptr<iSegmentEncoder> encoder)
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

tStatus tCompressionQueue::compress(tJob& job, unsigned int cancelled)
{
    tUntilCancelled untilCancelled(m_cancelled, cancelled);
    tFileConverter converter(job.path, &untilCancelled);
    tStatus status = converter.compressRecorded(m_specifySuffix, *job.encoder);
    if (status)
        m_compressed(job.path, converter.result());
    return status;
}
}  // namespace storage
