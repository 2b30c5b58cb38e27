// Texts of moments, and places in a recording: the same for every command.
#ifndef KESTOVA_TOOLS_SHELL_PLACES_H
#define KESTOVA_TOOLS_SHELL_PLACES_H

#include "sessions/report/places.h"

namespace tool
{
using session::parseMoment;
using session::parseWhen;
using session::timeText;
using session::useUtc;
}  // namespace tool

#endif
