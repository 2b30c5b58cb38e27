// tServeMetrics: what the server has counted, as text that Prometheus reads.
#ifndef KESTOVA_SERVER_METRICS_H
#define KESTOVA_SERVER_METRICS_H

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace server
{
// Any thread.
class tServeMetrics
{
public:
    std::atomic<std::size_t> viewers{0};
    std::atomic<std::uint64_t> thinnedSpokes{0};

    void countRefused(const std::string& reason);
    // `free` are the names of the roots and the free bytes of their disks.
    std::string text(const std::vector<std::pair<std::string, std::uint64_t>>& free) const;

private:
    mutable std::mutex m_mutex;
    std::map<std::string, std::uint64_t> m_refused;  // guarded by m_mutex
};
}  // namespace server

#endif
