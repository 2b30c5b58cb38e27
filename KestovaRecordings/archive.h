// The data files below a path.
#ifndef KESTOVA_RECORDINGS_ARCHIVE_H
#define KESTOVA_RECORDINGS_ARCHIVE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/datafile.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Returns the path itself for a file, or every file below a folder whose name ends in `suffix` (".data"), in order of
// their paths. A path below a folder is the folder as given, joined by "/". Throws tFailure if there is no such path or
// the folder has no such file. Leaves out hidden folders: what is being made or removed. Does not open the files. Any
// thread.
KESTOVA_API std::vector<std::string> findRecordings(const std::string& path, const std::string& suffix);

// A file, or a path, that is left out.
struct tLeftOut
{
    std::string path, reason;
    bool asked = false;  // the path itself was asked for: nothing can be done for it
};

// The data files below several paths.
struct tFoundFiles
{
    std::vector<std::string> files;
    std::vector<tLeftOut> leftOut;
};

// Returns the files of findRecordings() for each path in the order given, each file once, and the paths that have none.
// Of a plain file and its compressed form, which a recorder leaves if it dies between two steps, it returns the second
// alone and leaves the first one out; it waits up to a second for a recorder that removes it. Opens no other files. Any
// thread.
KESTOVA_API tFoundFiles findAllRecordings(const std::vector<std::string>& paths, const std::string& suffix);

// Returns where one of the files is now: its path, or its compressed form if a recorder has compressed it since it was
// found. Returns nothing if it is gone, or that form is one of the files, too.
KESTOVA_API std::optional<std::string> presentForm(const std::string& file, const std::vector<std::string>& files,
                                                   const std::string& suffix);

// Returns the entry for a path; `why` may begin with the path itself.
KESTOVA_API tLeftOut leftOut(const std::string& path, const std::string& why, bool asked);

// Returns the failure of a job for which no file is left, as the first entry explains it.
KESTOVA_API tFailure nothingLeft(const std::vector<tLeftOut>& leftOut);

// Returns the bytes that a file takes on its disk: fewer than its length where it has holes. 0 if that fails.
KESTOVA_API std::uint64_t sizeOnDisk(const std::string& path);

// Returns whether at least one segment of the file can be read back.
KESTOVA_API bool isReadable(storage::tDataFile& file);

KESTOVA_API std::string kindName(storage::tFileHeadSymbol kind);  // returns "plain" or "huffman"
}  // namespace recordings

#endif
