// tCollector: keeps what arrives on other threads, in order.
#ifndef KESTOVA_TESTS_COLLECTOR_H
#define KESTOVA_TESTS_COLLECTOR_H

#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

template <typename tItem>
class tCollector
{
public:
    void add(tItem item)
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_items.push_back(std::move(item));
    }
    std::vector<tItem> all() const
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_items;
    }
    std::size_t count() const
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_items.size();
    }
    void clear()
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_items.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<tItem> m_items;  // guarded by m_mutex
};

#endif
