#include "server/metrics.h"

#include <fmt/format.h>

namespace server
{
namespace
{
std::string head(const char* name, const char* type, const char* help)
{
    return fmt::format("# HELP {0} {2}\n# TYPE {0} {1}\n", name, type, help);
}

std::string labelText(const std::string& value)
{
    std::string text;
    for (const char c : value)
    {
        if (c == '\\' || c == '"')
            text += '\\';
        text += c == '\n' ? ' ' : c;
    }
    return text;
}
}  // namespace

void tServeMetrics::countRefused(const std::string& reason)
{
    const std::lock_guard lock(m_mutex);
    ++m_refused[reason];
}

std::string tServeMetrics::text(const std::vector<std::pair<std::string, std::uint64_t>>& free) const
{
    std::string out = head("kestova_serve_viewers", "gauge", "Pages that are connected.");
    out += fmt::format("kestova_serve_viewers {}\n", viewers.load());
    out += head("kestova_serve_thinned_spokes_total", "counter", "Spokes that slow viewers were not sent.");
    out += fmt::format("kestova_serve_thinned_spokes_total {}\n", thinnedSpokes.load());
    out += head("kestova_serve_refused_total", "counter", "Requests that were refused.");
    {
        const std::lock_guard lock(m_mutex);
        for (const auto& [reason, count] : m_refused)
            out += fmt::format("kestova_serve_refused_total{{reason=\"{}\"}} {}\n", reason, count);
    }
    out += head("kestova_disk_free_bytes", "gauge", "Free room on the disk of the storage root.");
    for (const auto& [root, bytes] : free)
        out += fmt::format("kestova_disk_free_bytes{{root=\"{}\"}} {}\n", labelText(root), bytes);
    return out;
}
}  // namespace server
