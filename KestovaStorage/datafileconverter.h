// Finished data files rewritten: plain ones compressed, compressed ones expanded.
#ifndef KESTOVA_DATAFILECONVERTER_H
#define KESTOVA_DATAFILECONVERTER_H

#include <stdint.h>
#include <string>

#include "UdpSocket/kestovaapi.h"

namespace storage
{
enum tConversionStep : int32_t
{
    eCounting = 0,  // the bytes' code is being made; only when compressing
    eWriting = 1,
    eVerifying = 2  // every segment of the result is read back and compared; much of it during the step before
};

class KESTOVA_API iConversionObserver
{
public:
    virtual ~iConversionObserver() = default;
    // How many bytes of payload this step has dealt with, and how many there are; about once a MiB, on the thread that
    // converts. False ends the work: the file is then as it was. Must not throw.
    virtual bool UpdateConversion(tConversionStep step, uint64_t doneBytes, uint64_t totalBytes) = 0;
};

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
