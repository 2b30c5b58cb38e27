// Writes data files in the other form: plain ones compressed, and back.
//
// Units    bytes of payload, for progress.
// Threads  progress and stored records are reported on the calling thread. Counting starts a second thread.
// Errors   the tStatus does not name the file. The source is never changed; the caller removes a partial output.
#ifndef KESTOVA_STORAGE_CONVERSION_FILECODING_H
#define KESTOVA_STORAGE_CONVERSION_FILECODING_H

#include <cstdint>

#include "KestovaStorage/internal/codec/segmentcodec.h"
#include "KestovaStorage/internal/conversion/conversionoutput.h"
#include "KestovaStorage/internal/conversion/sharedpieces.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/disk/outputfile.h"
#include "common/status.h"

namespace storage
{
// Counts every segment of a file for its code; `encoder` is that of cCompressedForm.
tStatus countSegments(tDataFileReader& plain, iSegmentEncoder& encoder, const tProgressFunction& report);
// Writes the compressed file of a finished plain file all of whose segments `encoder` has counted. Fails for what the
// stored form cannot restore.
tStatus encodeFile(tDataFileReader& plain, iSegmentEncoder& encoder, tOutputFile& out, const tProgressFunction& report,
                   const tStored& stored);
// Writes the plain file of a compressed file, which must decode to `bytes` bytes of payload.
tStatus decodeFile(tDataFileReader& encoded, std::uint64_t bytes, tOutputFile& out, const tProgressFunction& report,
                   const tStored& stored);
}  // namespace storage

#endif
