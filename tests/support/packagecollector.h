// tPackageCollector: an observer that keeps every call.
#ifndef KESTOVA_TESTS_PACKAGECOLLECTOR_H
#define KESTOVA_TESTS_PACKAGECOLLECTOR_H

#include <cstddef>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KestovaStorage/packagebuilderandsplitter.h"
#include "support/collector.h"
#include "support/gate.h"

struct tPackageCall
{
    std::string bytes;
    int id;
    unsigned long timestamp;
    std::thread::id thread;
};

class tPackageCollector : public iPackageObserver
{
public:
    void UpdateSplittedPackage(const tRadarMsgPackage* package, unsigned size, int id) override
    {
        keep(m_splitted, {{reinterpret_cast<const char*>(package), size}, id, 0, std::this_thread::get_id()});
    }
    void UpdateBuildedPackage(const char* package, unsigned size, int id, unsigned long timestamp) override
    {
        keep(m_builded, {{package, size}, id, timestamp, std::this_thread::get_id()});
    }
    std::vector<tPackageCall> splitted() const { return m_splitted.all(); }
    std::vector<tPackageCall> builded() const { return m_builded.all(); }
    std::size_t count() const { return m_splitted.count() + m_builded.count(); }

    std::function<void()> m_onCall;  // set before packages flow; called without a lock

private:
    void keep(tCollector<tPackageCall>& calls, tPackageCall call)
    {
        calls.add(std::move(call));
        if (m_onCall)
            m_onCall();
    }

    tCollector<tPackageCall> m_splitted, m_builded;
};

#endif
