#include "KestovaStorage/internal/package/packageobservers.h"

#include <algorithm>
#include <utility>

tPackageObservers::tCaller::tCaller(tPackageObservers& observers) : m_observers(observers)
{
    const std::lock_guard guard(observers.m_mutex);
    observers.m_callers.push_back(this);
    m_list = observers.m_newest;
}

void tPackageObservers::tCaller::refresh()
{
    const std::lock_guard guard(m_observers.m_mutex);
    m_list = m_observers.m_newest;
    m_version = m_observers.m_version;
}

void tPackageObservers::add(iPackageObserver* observer)
{
    const std::lock_guard guard(m_mutex);
    tList list = *m_newest;
    list.push_back(observer);
    publish(std::move(list));
}

void tPackageObservers::remove(iPackageObserver* observer, eWait wait)
{
    std::unique_lock held(m_mutex);
    tList list = *m_newest;
    std::erase(list, observer);
    publish(std::move(list));
    if (wait == eWait::eNot)
        return;
    ++m_waiting;
    for (const tCaller* const caller : m_callers)
    {
        const std::uint64_t turn = caller->m_turn;
        if (turn % 2 != 0 && caller->m_observer == observer)
            m_cond.wait(held, [&] { return caller->m_turn != turn; });
    }
    --m_waiting;
}

void tPackageObservers::publish(tList list)
{
    m_newest = std::make_shared<const tList>(std::move(list));
    ++m_version;
}

bool tPackageObservers::contains(const iPackageObserver* observer)
{
    const std::lock_guard guard(m_mutex);
    return std::find(m_newest->begin(), m_newest->end(), observer) != m_newest->end();
}

void tPackageObservers::wakeWaiting()
{
    {
        const std::lock_guard guard(m_mutex);  // a waiter that looked before the turn ended is asleep by now
    }
    m_cond.notify_all();
}
