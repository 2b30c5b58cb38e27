// The directory file: the UDP group of each stream of each radar.
//
//   { "radars": [ { "serial": "A1:2", "id": 1,
//                   "streams": { "imageStream": "239.17.0.1:6001", "arpaStream": "239.17.0.4:6004" },
//                   "spoke": "cat240" } ] }
//
// A file is read whole or fails whole. An unknown or repeated key, a number out of range or a text that is no address
// fails the file, with one line that names the entry and the reason. Contents are hostile until checked; errors show at
// most a short, printable piece of them.
#ifndef KESTOVA_UTILS_RADARDIRECTORY_H
#define KESTOVA_UTILS_RADARDIRECTORY_H

#include <cstddef>
#include <string>
#include <vector>

#include "KestovaUtils/multiradarclient.h"

namespace utils
{
struct tRadarEntry
{
    std::string serial;
    unsigned short id;
    RadarAddress record;
    std::string spoke;  // JSON text of the layout of its spokes, its own or that of all radars; empty if there is none
};

constexpr std::size_t cLongestSerial = 128;  // bytes: it becomes a file name

// Returns the radars of a directory text in its order in `radars`. Returns false on an error in the text, with `radars`
// unchanged and the reason in `error`.
bool parseRadarDirectory(const std::string& text, std::vector<tRadarEntry>& radars, std::string& error);
// The same for a file; `error` begins with the path.
bool readRadarDirectory(const std::string& path, std::vector<tRadarEntry>& radars, std::string& error);
}  // namespace utils

#endif
