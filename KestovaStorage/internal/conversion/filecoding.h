// Writes data files in the other form: plain ones Huffman-compressed, and back.
//
// Units    bytes of payload, for progress.
// Threads  progress and stored records are reported on the calling thread. Counting starts a second thread.
// Errors   the tStatus does not name the file. The source is never changed; the caller removes a partial output.
#ifndef KESTOVA_STORAGE_CONVERSION_FILECODING_H
#define KESTOVA_STORAGE_CONVERSION_FILECODING_H

#include <cstdint>
#include <string>

#include "KestovaStorage/internal/codec/segmentencoder.h"
#include "KestovaStorage/internal/conversion/conversionoutput.h"
#include "KestovaStorage/internal/conversion/sharedpieces.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/disk/outputfile.h"
#include "common/status.h"

namespace storage
{
// Counts every segment of a file for its code.
tStatus countSegments(tDataFileReader& plain, huffman::tSegmentEncoder& encoder, const tProgressFunction& report);
// Writes the Huffman file of a finished plain file all of whose segments `encoder` has counted. Fails for what the
// stored form cannot restore.
tStatus encodeFile(tDataFileReader& plain, huffman::tSegmentEncoder& encoder, tOutputFile& out,
                   const tProgressFunction& report, const tStored& stored);
// Writes the plain file of a Huffman file, which must decode to `bytes` bytes of payload.
tStatus decodeFile(tDataFileReader& encoded, std::uint64_t bytes, tOutputFile& out, const tProgressFunction& report,
                   const tStored& stored);

// "rec/0003_2024-05-17_10-01-12_radar.data" with the suffix ".data" gives "...radar.tar.data". Only the last component
// of the path is changed: a folder may have the suffix in its name.
std::string encodedName(const std::string& plainPath, const std::string& suffix);
// The reverse; returns the path itself if it does not end so.
std::string plainName(const std::string& encodedPath, const std::string& suffix);
}  // namespace storage

#endif
