// The options that bound what recordings may take, for prune and record.
#ifndef KESTOVA_TOOLS_SHELL_PRUNELIMITS_H
#define KESTOVA_TOOLS_SHELL_PRUNELIMITS_H

#include <CLI/CLI.hpp>
#include <string>

#include "KestovaRecordings/prune.h"

namespace tool
{
struct tPruneTexts
{
    std::string maxAge, maxSize, minFree;

    recordings::tPruneLimits limits() const;
};

// Adds --max-age, --max-size and --min-free.
void addPruneLimits(CLI::App& command, tPruneTexts& texts);

// Returns what happened as a line: "deleted PATH (1.0 GB, recorded until ...): max-age".
std::string prunedText(const recordings::tPruned& one, bool dryRun);
}  // namespace tool

#endif
