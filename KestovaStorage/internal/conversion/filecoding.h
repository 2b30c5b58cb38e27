// Writes data files in the other form: plain ones Huffman-compressed, and back.
//
// Units    bytes of payload, for progress.
// Threads  progress and what is stored are reported on the calling thread. Counting takes a thread of its own to help.
// Errors   the tStatus does not name the file. The source is never changed; the caller removes a partial output.
#ifndef KESTOVA_STORAGE_CONVERSION_FILECODING_H
#define KESTOVA_STORAGE_CONVERSION_FILECODING_H

#include <cstdint>
#include <string>

#include "KestovaStorage/internal/codec/segmentencoder.h"
#include "KestovaStorage/internal/conversion/convertedfile.h"
#include "KestovaStorage/internal/conversion/sharedpieces.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/disk/outputfile.h"
#include "common/status.h"

namespace storage
{
// Counts every segment of a file for its code.
tStatus countSegments(tDataFileReader& plain, huffman::tSegmentEncoder& encoder, const tGoOn& goOn);
// Writes the Huffman file of a finished plain file all of whose segments `encoder` has counted. Refuses what the
// stored form cannot give back.
tStatus encodeFile(tDataFileReader& plain, huffman::tSegmentEncoder& encoder, tOutputFile& out, const tGoOn& goOn,
                   const tStored& stored);
// Writes the plain file of a Huffman file, which must give `bytes` bytes of payload.
tStatus decodeFile(tDataFileReader& encoded, std::uint64_t bytes, tOutputFile& out, const tGoOn& goOn,
                   const tStored& stored);

// "rec/0003_2024-05-17_10-01-12_radar.data" with the suffix ".data" gives "...radar.tar.data". Only the last component
// of the path is looked at: a folder may have the suffix in its name.
std::string encodedName(const std::string& plainPath, const std::string& suffix);
// The reverse: the path itself where it does not end so.
std::string plainName(const std::string& encodedPath, const std::string& suffix);
}  // namespace storage

#endif
