// Who follows the conversion of a data file, and may end it; what a conversion leaves out.
#ifndef KESTOVA_CONVERSIONOBSERVER_H
#define KESTOVA_CONVERSIONOBSERVER_H

#include <stdint.h>

#include "UdpSocket/kestovaapi.h"

namespace storage
{
enum tConversionStep : int32_t
{
    eCounting = 0,  // the bytes' code is being made; only when compressing
    eWriting = 1,
    eVerifying = 2  // every segment of the result is read back and compared; much of it during the step before
};

// The end of a plain file that a full disk cut.
struct tLeftOut
{
    uint64_t records;  // of the index, which reach beyond the end of the file
    uint64_t bytes;    // behind the last whole record
};

class KESTOVA_API iConversionObserver
{
public:
    virtual ~iConversionObserver() = default;
    // Reports how many bytes of payload this step has processed, and how many there are; about once a MiB, on the
    // thread that converts. Returning false ends the work: the file is then as it was. Must not throw.
    virtual bool UpdateConversion(tConversionStep step, uint64_t doneBytes, uint64_t totalBytes) = 0;
};
}  // namespace storage

#endif
