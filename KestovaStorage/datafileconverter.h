// Finished data files rewritten: plain ones compressed, compressed ones expanded.
#ifndef KESTOVA_DATAFILECONVERTER_H
#define KESTOVA_DATAFILECONVERTER_H

#include <string>

#include "KestovaStorage/conversionobserver.h"
#include "UdpSocket/kestovaapi.h"

namespace storage
{
// The result is written beside the file under another ending (".part"), verified and synced, and only then takes the
// file's place, at one stroke: whenever the process or the machine dies, the recording is whole, in one form or the
// other. Memory stays below 64 MiB for segments up to 1 MiB. Any thread; one file is for one call at a time. A call
// takes a second thread to help it while it runs.
class KESTOVA_API tDataFileConverter
{
public:
    // Compresses a finished plain file; NAME.tar.data takes the place of NAME.data (".data" being `specifySuffix`).
    // False, with file and reason in `error`, and the file is untouched: if it is compressed already, unfinished or
    // damaged, holds bytes that belong to no segment, could not be restored byte for byte (of a single byte value,
    // say), if the result's name is taken, something could not be read or written, or the observer ended it. `result`
    // is the new path. `observer`, `result` and `error` may be null.
    static bool Compress(const std::string& path, const std::string& specifySuffix, iConversionObserver* observer,
                         std::string* result, std::string* error);
    // Expands a compressed file; NAME.data takes the place of NAME.tar.data. As Compress otherwise; refuses a file that
    // does not give back as many bytes as its head has counted.
    static bool Expand(const std::string& path, const std::string& specifySuffix, iConversionObserver* observer,
                       std::string* result, std::string* error);
};
}  // namespace storage

#endif
