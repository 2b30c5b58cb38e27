#include "tools/shell/findings.h"

#include <algorithm>
#include <fmt/format.h>

#include "tools/shell/places.h"
#include "tools/shell/units.h"

namespace tool
{
namespace
{
constexpr std::size_t cMostLines = 20;
}  // namespace

std::string findingsText(const std::vector<recordings::tFinding>& findings, std::uint64_t more)
{
    std::string text;
    const std::size_t shown = std::min(findings.size(), cMostLines);
    for (std::size_t i = 0; i < shown; ++i)
    {
        const recordings::tFinding& finding = findings[i];
        text += fmt::format("  {:<11}", finding.kind);
        if (finding.record)
            text += fmt::format(" record {}", *finding.record);
        if (finding.offset)
            text += fmt::format(" at {}", *finding.offset);
        if (finding.timeMs)
            text += fmt::format(", {}", timeText(*finding.timeMs));
        text += (finding.record || finding.offset ? ": " : " ") + finding.detail + '\n';
    }
    if (more + findings.size() > shown)
        text += fmt::format("  and {} more\n", more + findings.size() - shown);
    return text;
}

std::string verifyingText(const recordings::tVerifyProgress& at)
{
    const double done = at.ofBytes != 0 ? static_cast<double>(at.bytes) / static_cast<double>(at.ofBytes) : 0.0;
    return fmt::format("{} of {} files: {}", at.file, at.files, percentText(done));
}
}  // namespace tool
