// Writes data files in the other form: plain ones compressed, and back.
//
// Units    bytes of payload, for progress.
// Threads  progress and what is stored are reported on the calling thread. Counting takes a thread of its own to help.
// Errors   the tStatus does not name the file. The source is never changed; the caller removes a partial output.
#ifndef KESTOVA_STORAGE_CONVERSION_FILECODING_H
#define KESTOVA_STORAGE_CONVERSION_FILECODING_H

#include <cstdint>

#include "KestovaStorage/internal/codec/segmentcodec.h"
#include "KestovaStorage/internal/conversion/convertedfile.h"
#include "KestovaStorage/internal/conversion/sharedpieces.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/disk/outputfile.h"
#include "common/status.h"

namespace storage
{
// Counts every segment of a file for its code; `encoder` is that of cCompressedForm.
tStatus countSegments(tDataFileReader& plain, iSegmentEncoder& encoder, const tGoOn& goOn);
// Writes the compressed file of a finished plain file all of whose segments `encoder` has counted. Refuses what the
// stored form cannot give back.
tStatus encodeFile(tDataFileReader& plain, iSegmentEncoder& encoder, tOutputFile& out, const tGoOn& goOn,
                   const tStored& stored);
// Writes the plain file of a compressed file, which must give `bytes` bytes of payload.
tStatus decodeFile(tDataFileReader& encoded, std::uint64_t bytes, tOutputFile& out, const tGoOn& goOn,
                   const tStored& stored);
}  // namespace storage

#endif
