// Rewrites finished data files: compresses plain ones, expands compressed ones.
#ifndef KESTOVA_DATAFILECONVERTER_H
#define KESTOVA_DATAFILECONVERTER_H

#include <string>

#include "KestovaStorage/conversionobserver.h"
#include "UdpSocket/kestovaapi.h"

namespace storage
{
// The result is written beside the file under another ending (".part"), verified and synced, and only then takes the
// file's place, at one stroke: whenever the process or the machine dies, the recording is whole, in one form or the
// other. Memory stays below 64 MiB for segments up to 1 MiB. Any thread may call, but only one at a time for one file.
// A call starts a second thread that helps while it runs.
class KESTOVA_API tDataFileConverter
{
public:
    // Compresses a finished plain file; NAME.tar.data takes the place of NAME.data (".data" being `specifySuffix`).
    // Returns false, sets `error` to file and reason, and leaves the file untouched if it is compressed already,
    // unfinished or damaged, holds bytes that belong to no segment, could not be restored byte for byte (one of a
    // single byte value, for example), if the result's name is taken, a read or write fails, or the observer ends it.
    // `result` is set to the new path. `observer`, `result` and `error` may be null.
    static bool Compress(const std::string& path, const std::string& specifySuffix, iConversionObserver* observer,
                         std::string* result, std::string* error);
    // Compresses as Compress does, and also the whole records of a file that a full disk cut: its last records reach
    // beyond its end, or bytes behind them belong to none. `leftOut`, which may be null, is set to what the result
    // does not have; zeros for a whole file.
    static bool CompressWhole(const std::string& path, const std::string& specifySuffix, iConversionObserver* observer,
                              std::string* result, tLeftOut* leftOut, std::string* error);
    // Expands a compressed file; NAME.data takes the place of NAME.tar.data. As Compress otherwise; fails for a file
    // that does not decode to as many bytes as its head has counted.
    static bool Expand(const std::string& path, const std::string& specifySuffix, iConversionObserver* observer,
                       std::string* result, std::string* error);
    // The name that the compressed form of the plain file `path` has: NAME.tar.data of NAME.data.
    static std::string CompressedName(const std::string& path, const std::string& specifySuffix);
};
}  // namespace storage

#endif
