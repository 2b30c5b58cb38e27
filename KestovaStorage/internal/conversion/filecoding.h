// Data files rewritten: plain ones Huffman-compressed, and back.
//
// Units    bytes of payload, for progress.
// Threads  progress and what is stored are told on the calling thread. Counting is shared with a thread of its own.
// Errors   false with a sentence in `error`, no file name in it; the source is never changed, and what was written of
//          the output is the caller's to remove.
#ifndef KESTOVA_STORAGE_CONVERSION_FILECODING_H
#define KESTOVA_STORAGE_CONVERSION_FILECODING_H

#include <cstdint>
#include <functional>
#include <string>

#include "KestovaStorage/internal/codec/segmentencoder.h"
#include "KestovaStorage/internal/conversion/sharedpieces.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/disk/outputfile.h"

namespace storage
{
// Called as the output grows: so many records are in it now, with their index.
using tStored = std::function<void(std::size_t records)>;

// Counts every segment of a file for its code.
bool countSegments(tDataFileReader& plain, huffman::tSegmentEncoder& encoder, const tGoOn& goOn, std::string& error);
// Writes the Huffman file of a finished plain file all of whose segments `encoder` has counted. Refuses what the
// stored form cannot give back.
bool encodeFile(tDataFileReader& plain, huffman::tSegmentEncoder& encoder, tOutputFile& out, const tGoOn& goOn,
                const tStored& stored, std::string& error);
// Writes the plain file of a Huffman file, which must give `bytes` bytes of payload.
bool decodeFile(tDataFileReader& encoded, std::uint64_t bytes, tOutputFile& out, const tGoOn& goOn,
                const tStored& stored, std::string& error);

// "rec/0003_2024-05-17_10-01-12_radar.data" with the suffix ".data" gives "...radar.tar.data". Only the last component
// of the path is looked at: a folder may have the suffix in its name.
std::string encodedName(const std::string& plainPath, const std::string& suffix);
}  // namespace storage

#endif
