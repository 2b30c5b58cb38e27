#include "tools/shell/prunelimits.h"

#include <fmt/format.h>

#include "tools/shell/names.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/units.h"

namespace tool
{
recordings::tPruneLimits tPruneTexts::limits() const
{
    recordings::tPruneLimits limits;
    if (!maxAge.empty())
        limits.maxAgeMs = parseDuration(maxAge);
    if (!maxSize.empty())
        limits.maxBytes = parseSize(maxSize);
    if (!minFree.empty())
        limits.freeBytes = parseSize(minFree);
    return limits;
}

void addPruneLimits(CLI::App& command, tPruneTexts& texts)
{
    command.add_option("--max-age", texts.maxAge, "Delete what was recorded longer ago than this, such as 30d")
        ->type_name("DUR")
        ->check(checkedBy(parseDuration));
    command.add_option("--max-size", texts.maxSize, "Delete the oldest while all take more than this, such as 500G")
        ->type_name("SIZE")
        ->check(checkedBy(parseSize));
    command.add_option("--min-free", texts.minFree, "Delete the oldest while less than this is free on the disk")
        ->type_name("SIZE")
        ->check(checkedBy(parseSize));
}

std::string prunedText(const recordings::tPruned& one, bool dryRun)
{
    return fmt::format("{} {} ({}, recorded until {}): {}", dryRun ? "would delete" : "deleted", printable(one.path),
                       sizeText(one.bytes), timeText(one.lastMs), causeName(one.cause));
}
}  // namespace tool
