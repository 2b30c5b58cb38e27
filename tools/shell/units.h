// Texts of sizes, rates and durations, and their parsers: the same for every command.
#ifndef KESTOVA_TOOLS_SHELL_UNITS_H
#define KESTOVA_TOOLS_SHELL_UNITS_H

#include "sessions/report/units.h"

namespace tool
{
using session::durationText;
using session::parseDistance;
using session::parseDuration;
using session::parseSize;
using session::percentText;
using session::perSecond;
using session::plainNumber;
using session::rateText;
using session::sizeText;
}  // namespace tool

#endif
