// The data files that a new recording is made from, and what their indexes say.
#ifndef KESTOVA_RECORDINGS_INTERNAL_INPUTFILES_H
#define KESTOVA_RECORDINGS_INTERNAL_INPUTFILES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"

namespace recordings
{
struct tInputFile
{
    std::string path;
    std::size_t argument = 0;   // number of the path below which it was found
    std::size_t recording = 0;  // number of the recording that it belongs to, see below
    std::uint64_t records = 0;
    std::uint64_t startMs = 0;              // of the record that comes first in the file
    std::uint64_t firstMs = 0, lastMs = 0;  // the earliest and the latest
};

// Files of one folder whose names differ in number and time alone follow one another: they are one recording, in the
// order of their names. Files without a record are none of the inputs.
struct tInputFiles
{
    std::string suffix;
    std::vector<tInputFile> files;  // recording by recording, in order
    std::vector<tLeftOut> leftOut;
    std::uint64_t records = 0;
    std::uint64_t firstMs = 0, lastMs = 0;
    std::size_t recordings = 0;
    bool fineTimes = false;  // one of the files has some
};

// Opens each file below the paths once. Throws tFailure if none has a record.
tInputFiles findInputs(const std::vector<std::string>& paths, const std::string& suffix);

// Returns where the file is now: a recorder may have compressed it.
std::string presentPath(const std::string& path, const std::string& suffix);
}  // namespace recordings

#endif
