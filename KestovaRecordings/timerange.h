// tTimeRange: the records of some data files by their time.
#ifndef KESTOVA_RECORDINGS_TIMERANGE_H
#define KESTOVA_RECORDINGS_TIMERANGE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaRecordings/packagecontents.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// One thread at a time.
class KESTOVA_API tTimeRange
{
public:
    // Looks at the first and the last record of every file, and at its sheet. Files that cannot be read are left out;
    // one that a recorder has compressed meanwhile is read in that form. Names of plain files end in `suffix`.
    tTimeRange(const std::vector<std::string>& files, const std::string& suffix);
    ~tTimeRange();
    tTimeRange(const tTimeRange&) = delete;
    tTimeRange& operator=(const tTimeRange&) = delete;

    // Of all records; 0 if there is none. Where the clock was set back within a file that has no sheet, records may lie
    // outside.
    std::uint64_t firstMs() const { return m_firstMs; }
    std::uint64_t lastMs() const { return m_lastMs; }

    // Returns the file in which records of that time are, or the last one before it; empty if there is none.
    std::string fileAt(std::uint64_t ms) const;

    // Returns whether the packages of a kind are wanted.
    using tWants = std::function<bool(tReadWriteType kind)>;
    // `package` is valid during the call. Returns whether to go on.
    using tVisit = std::function<bool(std::uint64_t timeMs, const tPackageContents& package)>;
    // Calls `visit` for every package of a wanted kind that was recorded from `fromMs` to `toMs`, both included: file
    // after file, in the order of their first records, and in the order of recording. Of others only heads are read.
    // Records that are no packages are passed over, as are those that cannot be read. Returns false if `visit` did.
    // A file that is being recorded shows what it held when it was opened.
    bool forEachPackage(std::uint64_t fromMs, std::uint64_t toMs, const tWants& wants, const tVisit& visit) const;

private:
    struct tPart
    {
        std::string path;
        std::uint64_t firstMs, lastMs;
    };
    bool open(const tPart& part) const;
    bool visitFile(std::uint64_t fromMs, std::uint64_t toMs, const tWants& wants, const tVisit& visit) const;

    std::vector<tPart> m_parts;  // in the order of their first records
    std::uint64_t m_firstMs = 0, m_lastMs = 0;
    std::unique_ptr<storage::tDataFile> m_file;
};
}  // namespace recordings

#endif
