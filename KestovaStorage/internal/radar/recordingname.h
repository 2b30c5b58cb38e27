// The name of a radar's recording: its serial number and the letter of its number among several radars.
#ifndef KESTOVA_STORAGE_RADAR_RECORDINGNAME_H
#define KESTOVA_STORAGE_RADAR_RECORDINGNAME_H

#include <string>

namespace Kestova
{
// Serial "A1:2" with id 1 gives "A1_2_B": the first ":" becomes "_" unless it is the first character; ids 0 to 25 are
// the letters A to Z, higher ones stand as their number ("A1_2_26"). The name becomes part of a file name, so the
// characters "/" and "\" of a serial become "%2F" and "%5C", and control characters their "%" form likewise.
std::string recordingName(const std::string& serial, unsigned short id);
}  // namespace Kestova

#endif
