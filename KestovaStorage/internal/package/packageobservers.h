// tPackageObservers: who wants packages, and who is being called right now.
//
// Shapes   the list is copied when it changes; a calling thread keeps the copy it knows and looks whether that is the
//          newest before every call. A removed observer is thus not called again, not even for the package in hand.
// Owner    observers belong to the application. Callers live as long as the list.
// Threads  add() and remove() on any, from inside a call too. Each calling thread has a tCaller of its own; observers
//          are called without a lock.
#ifndef KESTOVA_STORAGE_PACKAGE_PACKAGEOBSERVERS_H
#define KESTOVA_STORAGE_PACKAGE_PACKAGEOBSERVERS_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

class iPackageObserver;

class tPackageObservers
{
public:
    using tList = std::vector<iPackageObserver*>;
    enum class eWait
    {
        eForCallsUnderWay,
        eNot  // for callers that may be such a call themselves
    };

    // One calling thread.
    class tCaller
    {
    public:
        explicit tCaller(tPackageObservers& observers);
        tCaller(const tCaller&) = delete;
        tCaller& operator=(const tCaller&) = delete;

        // call(observer) for every observer, in the order of registration.
        template <typename tCall>
        void each(tCall call)
        {
            if (!isNewest())
                refresh();
            for (iPackageObserver* const observer : *m_list)
                callOne(observer, call);
        }

    private:
        friend class tPackageObservers;

        template <typename tCall>
        void callOne(iPackageObserver* observer, tCall& call)
        {
            // Said first, looked second; remove() changes first and looks at the callers second: one sees the other.
            m_observer.store(observer, std::memory_order_relaxed);
            ++m_turn;
            if (isNewest() || m_observers.contains(observer))
                call(observer);
            ++m_turn;
            if (m_observers.m_waiting != 0)
                m_observers.wakeWaiting();
        }
        bool isNewest() const { return m_version == m_observers.m_version; }
        void refresh();

        tPackageObservers& m_observers;
        std::shared_ptr<const tList> m_list;
        std::uint64_t m_version = 0;  // of m_list
        std::atomic<iPackageObserver*> m_observer{nullptr};
        std::atomic<std::uint64_t> m_turn{0};  // odd while m_observer is being called
    };

    void add(iPackageObserver* observer);
    // Removes every entry equal to `observer`; then, if asked, waits until no call to it is under way.
    void remove(iPackageObserver* observer, eWait wait);

private:
    void publish(tList list);
    bool contains(const iPackageObserver* observer);
    void wakeWaiting();

    std::mutex m_mutex;
    std::condition_variable m_cond;
    std::shared_ptr<const tList> m_newest = std::make_shared<const tList>();  // guarded by m_mutex
    std::vector<const tCaller*> m_callers;                                    // guarded by m_mutex
    std::atomic<std::uint64_t> m_version{1};                                  // of m_newest; changed under m_mutex
    std::atomic<unsigned> m_waiting{0};                                       // in remove(); changed under m_mutex
};

#endif
