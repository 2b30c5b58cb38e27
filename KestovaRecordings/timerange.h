// tTimeRange: the records of some data files by their time.
#ifndef KESTOVA_RECORDINGS_TIMERANGE_H
#define KESTOVA_RECORDINGS_TIMERANGE_H

#include <cstddef>
#include <cstdint>
#include <functional>
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
    // Opens every file once, for the span of its records. Files that cannot be read are left out; one that a recorder
    // has compressed meanwhile is read in that form. Names of plain files end in `suffix`.
    tTimeRange(const std::vector<std::string>& files, const std::string& suffix);

    std::uint64_t firstMs() const { return m_firstMs; }  // of all records; 0 if there is none
    std::uint64_t lastMs() const { return m_lastMs; }

    // Returns whether the packages of a kind are wanted.
    using tWants = std::function<bool(tReadWriteType kind)>;
    // `package` is valid during the call.
    using tVisit = std::function<void(std::uint64_t timeMs, const tPackageContents& package)>;
    // Calls `visit` for every package of a wanted kind that was recorded from `fromMs` to `toMs`, both included: file
    // after file, in the order of their first records, and in the order of recording. Of others only heads are read.
    // Records that are no packages are passed over, as are those that cannot be read.
    void forEachPackage(std::uint64_t fromMs, std::uint64_t toMs, const tWants& wants, const tVisit& visit) const;

private:
    struct tPart
    {
        std::string path;
        std::uint64_t firstMs, lastMs;
    };
    std::vector<tPart> m_parts;  // in the order of their first records
    std::uint64_t m_firstMs = 0, m_lastMs = 0;
};
}  // namespace recordings

#endif
