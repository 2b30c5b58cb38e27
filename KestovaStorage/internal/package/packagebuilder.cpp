#include "KestovaStorage/internal/package/packagebuilder.h"

#include <memory>
#include <utility>

#include "KestovaStorage/internal/package/deliveryworker.h"

// write(place) fills the package, stamp(place, number) completes it where it lies in the queue.
template <typename tWrite, typename tStamp>
void tPackageBuilder::queue(std::size_t size, tWrite write, tStamp stamp)
{
    if (size < cLongPackage)
    {
        tDeliveryWorker::tRun(m_queue).push(size, [&](char* place) {
            write(place);
            stamp(place, m_buildedPackCnt++);
        });
        return;
    }
    auto block = tWalkQueue::makeLink(size);
    char* const place = block->reserve(size);
    write(place);
    tDeliveryWorker::tRun(m_queue).push(std::move(block), [&] { stamp(place, m_buildedPackCnt++); });
}

void tPackageBuilder::build(tPackageFields fields, const char* payload, std::size_t payloadLen)
{
    queue(
        packageSize(payloadLen), [&](char* place) { writePackage(place, fields, payload, payloadLen); }, stampPackCnt);
}

void tPackageBuilder::queueReady(char* package, std::size_t len)
{
    queue(
        len, [&](char* place) { std::memcpy(place, package, len); },
        [&](char* place, std::uint32_t number) {
            stampPackCnt(package, number);
            stampPackCnt(place, number);
        });
}

void tPackageBuilder::resetCount()
{
    m_queue.between([this] { m_buildedPackCnt = 0; });
}
