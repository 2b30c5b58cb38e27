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

// Returns the layouts of the file of --layout or, if that is empty, of the first of the recordings whose sheet has
// some. Throws tFailure if there is none, or the file is none.
std::vector<utils::tSpokeLayout> spokeLayoutsFor(const std::vector<std::string>& files, const std::string& layout);
}  // namespace tool

#endif
