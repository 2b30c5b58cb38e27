// tPackageBuilder: numbers packages and queues them for the send thread, in the order of their numbers.
//
// Shapes   a package is written once, in its final form, into the queue's own memory. A long one is first written into
//          a block of its own, so that nobody waits behind its copy; only number and place are given under the lock.
// Owner    the queue outlives the builder.
// Threads  any.
#ifndef KESTOVA_STORAGE_PACKAGE_PACKAGEBUILDER_H
#define KESTOVA_STORAGE_PACKAGE_PACKAGEBUILDER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "KestovaStorage/internal/package/packageformat.h"

class tDeliveryWorker;

class tPackageBuilder
{
public:
    static constexpr std::size_t cLongPackage = 128 * 1024;  // longer than any datagram; from here on copied unlocked

    explicit tPackageBuilder(tDeliveryWorker& queue) : m_queue(queue) {}

    // Wraps a payload; fields.packCnt is chosen here.
    void build(tPackageFields fields, const char* payload, std::size_t payloadLen);
    // Queues a copy of a whole package of at least packageSize(0) bytes and stamps both with its number.
    void queueReady(char* package, std::size_t len);

    std::uint32_t count() const { return m_buildedPackCnt; }
    void resetCount();

private:
    template <typename tWrite, typename tStamp>
    void queue(std::size_t size, tWrite write, tStamp stamp);

    tDeliveryWorker& m_queue;
    std::atomic<std::uint32_t> m_buildedPackCnt{0};  // changed under the queue's lock
};

#endif
