// tSheetBuilder: what a sheet says about the records of a file, computed while they are written or read.
//
// Shapes   records in the order of the file's index, from its first one on. Times in any order: a clock that was set
//          back costs nothing but an entry of its own.
// Costs    reads a segment once or twice while it is in the cache (a digest of the message, a checksum of the segment).
//          Memory grows with the seconds that each stream has messages in, and with the blocks: at most some 20 MB for
//          a full file.
// Threads  starts none, locks nothing: one thread at a time.
#ifndef KESTOVA_RECORDINGS_SHEETBUILDER_H
#define KESTOVA_RECORDINGS_SHEETBUILDER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/finetimesformat.h"
#include "KestovaStorage/writeobserver.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
class KESTOVA_API tSheetBuilder
{
public:
    tSheetBuilder();
    ~tSheetBuilder();
    tSheetBuilder(tSheetBuilder&&) noexcept;
    tSheetBuilder& operator=(tSheetBuilder&&) noexcept;

    // Takes a record of a plain file: its time, the microseconds within the millisecond (storage::cNoFineTime if they
    // are not known), its segment, and the place of its first byte in the file.
    void add(std::uint64_t timeMs, std::uint16_t us, std::string_view segment, std::uint64_t position);
    // The same of segments as a storage object reports them; takes less time for those that lie back to back.
    void addWritten(const storage::tWrittenSegment* segments, std::size_t count);
    // The same of a file in any form: the slot as the index has it, and the segment decoded.
    void add(const storage::tIndexSlot& slot, std::uint16_t us, std::string_view segment);

    std::uint64_t records() const;
    std::uint64_t bytes() const;

    // Sets what is known of the records so far: records, bytes, firstMs, lastMs, first, silences, streams, blocks,
    // fineCrc32c (if a record has fine times), and keeps everything else. Streams that only the sheet has stay, and so
    // do kernelDropped and missingOnWire of all of them. `form` is the caller's.
    void fill(tSheet& sheet) const;

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};

// Sets `headCrc32c` from the finished file, and `finished`. Throws tFailure if it cannot be read.
KESTOVA_API void sealSheet(tSheet& sheet, const std::string& dataFile);

// Returns a new id: 32 hexadecimal digits, random.
KESTOVA_API std::string newSheetId();
// Returns the id of the 16 bytes of a storage::tFileId.
KESTOVA_API std::string sheetId(const storage::tFileId& id);
}  // namespace recordings

#endif
