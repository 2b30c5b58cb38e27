// The radar that a session is about.
#ifndef KESTOVA_SESSIONS_RADARCHOICE_H
#define KESTOVA_SESSIONS_RADARCHOICE_H

#include <string>

#include "KestovaUtils/multiradarclient.h"

namespace session
{
// A radar of a directory file.
struct tRadarChoice
{
    std::string directory;
    std::string serial;
    unsigned short id = 0;

    // Loads the directory and looks the radar up. Throws tFailure.
    const RadarAddress& find() const;
};
}  // namespace session

#endif
