// How the spokes of recordings are laid out: what the user says, or what their recorder knew.
#ifndef KESTOVA_TOOLS_COMMANDS_SPOKELAYOUTS_H
#define KESTOVA_TOOLS_COMMANDS_SPOKELAYOUTS_H

#include <string>
#include <vector>

#include "KestovaUtils/spokelayout.h"

namespace CLI
{
class App;
}

namespace tool
{
// Adds --layout.
void addLayout(CLI::App& command, std::string& file);

// Returns the JSON text of the layouts of such a file. Throws tFailure if it has none.
std::string spokeLayoutText(const std::string& file);

using tSpokeLayouts = std::vector<utils::tSpokeLayout>;

// Returns the layouts of the file of --layout or, if that is empty, of the sheets of the data files: each once, in the
// order of the files. Throws tFailure if there is none, or one cannot be read.
tSpokeLayouts spokeLayoutsFor(const std::vector<std::string>& files, const std::string& layout);
// The same; returns none if there is none.
tSpokeLayouts knownSpokeLayouts(const std::vector<std::string>& files, const std::string& layout);
}  // namespace tool

#endif
