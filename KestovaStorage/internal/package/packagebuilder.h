// tPackageBuilder: numbers packages and writes each one once, in its final form, into the memory of its sink.
//
// Shapes   a package gets its number under the sink's lock: numbers follow the order of the sink's queue.
// Owner    the sink outlives the builder.
// Threads  any.
#ifndef KESTOVA_STORAGE_PACKAGE_PACKAGEBUILDER_H
#define KESTOVA_STORAGE_PACKAGE_PACKAGEBUILDER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "KestovaStorage/internal/package/packageformat.h"

class iSegmentSource;

// The receiver of packages: a queue of segments.
class iPackageSink
{
public:
    virtual ~iPackageSink() = default;
    // Queues a package of `len` bytes, recorded at `timestamp_ms` and `us` microseconds, or storage::cNoFineTime.
    virtual void queue(std::size_t len, std::uint64_t timestamp_ms, std::uint16_t us, iSegmentSource& package) = 0;
};

class tPackageBuilder
{
public:
    explicit tPackageBuilder(iPackageSink& sink) : m_sink(sink) {}

    // Wraps a payload; fields.packCnt is chosen here.
    void build(const tPackageFields& fields, const char* payload, std::size_t payloadLen);
    // Queues a copy of a whole package of at least packageSize(0) bytes and stamps both with its number.
    void queueReady(char* package, std::size_t len);

    std::uint32_t count() const { return m_buildedPackCnt; }
    void resetCount() { m_buildedPackCnt = 0; }

private:
    iPackageSink& m_sink;
    std::atomic<std::uint32_t> m_buildedPackCnt{0};
};

#endif
