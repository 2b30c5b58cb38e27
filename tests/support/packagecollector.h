// tPackageCollector: an observer that keeps every call, and tGate, a door that a call can be held at.
#ifndef KESTOVA_TESTS_PACKAGECOLLECTOR_H
#define KESTOVA_TESTS_PACKAGECOLLECTOR_H

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KestovaStorage/packagebuilderandsplitter.h"

// A door that observers can be held at.
class tGate
{
public:
    void pass() { m_open.wait(false); }
    void open()
    {
        m_open = true;
        m_open.notify_all();
    }

private:
    std::atomic<bool> m_open{false};
};

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
        note(m_splitted,
             {std::string(reinterpret_cast<const char*>(package), size), id, 0, std::this_thread::get_id()});
    }
    void UpdateBuildedPackage(const char* package, unsigned size, int id, unsigned long timestamp) override
    {
        note(m_builded, {std::string(package, size), id, timestamp, std::this_thread::get_id()});
    }
    std::vector<tPackageCall> splitted() const { return copy(m_splitted); }
    std::vector<tPackageCall> builded() const { return copy(m_builded); }
    std::size_t count() const { return splitted().size() + builded().size(); }

    std::function<void()> m_onCall;  // set before packages flow; called without a lock

private:
    void note(std::vector<tPackageCall>& calls, tPackageCall call)
    {
        {
            const std::lock_guard guard(m_mutex);
            calls.push_back(std::move(call));
        }
        if (m_onCall)
            m_onCall();
    }
    std::vector<tPackageCall> copy(const std::vector<tPackageCall>& calls) const
    {
        const std::lock_guard guard(m_mutex);
        return calls;
    }

    mutable std::mutex m_mutex;
    std::vector<tPackageCall> m_splitted, m_builded;
};

#endif
