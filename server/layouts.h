// How the spokes of a recording or a radar are laid out.
#ifndef KESTOVA_SERVER_LAYOUTS_H
#define KESTOVA_SERVER_LAYOUTS_H

#include <string>
#include <vector>

#include "KestovaUtils/spokelayout.h"
#include "server/options.h"

namespace server
{
using tLayouts = std::vector<utils::tSpokeLayout>;

// Returns those of --layout; else those of the sheet of the data file; else what the directory says of the radar that
// the sheet names. None if nothing says it.
tLayouts layoutsOfFile(const tServeOptions& options, const std::string& dataFile);
tLayouts layoutsOfRadar(const tServeOptions& options, const std::string& serial, unsigned short id);
}  // namespace server

#endif
