// tRadarChoice: the radar of a session.
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

    // Loads the directory and returns the radar's entry. Throws tFailure if either fails.
    const RadarAddress& find() const;
};
}  // namespace session

#endif
