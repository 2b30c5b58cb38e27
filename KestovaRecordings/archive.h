// The data files that an argument FILE|FOLDER means.
#ifndef KESTOVA_RECORDINGS_ARCHIVE_H
#define KESTOVA_RECORDINGS_ARCHIVE_H

#include <string>
#include <vector>

#include "KestovaStorage/datafile.h"

namespace tool
{
// The file itself, or every file below the folder whose name ends in `suffix` (".data"), in order of their paths.
// Throws tFailure where there is no such path or the folder holds no such file.
std::vector<std::string> findRecordings(const std::string& path, const std::string& suffix);

// Whether this version can give back the file's segments; the file must hold some.
bool isReadable(storage::tDataFile& file);

std::string kindName(storage::tFileHeadSymbol kind);  // "plain", "huffman"
}  // namespace tool

#endif
