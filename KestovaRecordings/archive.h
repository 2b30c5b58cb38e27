// The data files below a path.
#ifndef KESTOVA_RECORDINGS_ARCHIVE_H
#define KESTOVA_RECORDINGS_ARCHIVE_H

#include <string>
#include <vector>

#include "KestovaStorage/datafile.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Returns the path itself for a file, or every file below a folder whose name ends in `suffix` (".data"), in order of
// their paths. A path below a folder is the folder as given, joined by "/". Throws tFailure if there is no such path or
// the folder has no such file. Does not open the files. Any thread.
KESTOVA_API std::vector<std::string> findRecordings(const std::string& path, const std::string& suffix);

// Returns whether at least one segment of the file can be read back.
KESTOVA_API bool isReadable(storage::tDataFile& file);

KESTOVA_API std::string kindName(storage::tFileHeadSymbol kind);  // returns "plain" or "huffman"
}  // namespace recordings

#endif
