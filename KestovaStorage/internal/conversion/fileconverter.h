// tFileConverter: one finished data file on its way from one form to the other. The result is written beside it,
// compared, synced, and renamed over it. A file that was just recorded is not compared.
//
// Threads  starts a second one while it works; the observer is called on the calling thread.
// Errors   a failure leaves the source untouched, but see compressRecorded(); the tStatus does not name it.
#ifndef KESTOVA_STORAGE_CONVERSION_FILECONVERTER_H
#define KESTOVA_STORAGE_CONVERSION_FILECONVERTER_H

#include <cstdint>
#include <memory>
#include <string>

#include "KestovaStorage/conversionobserver.h"
#include "KestovaStorage/internal/conversion/conversionoutput.h"
#include "KestovaStorage/internal/conversion/sharedpieces.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/disk/outputfile.h"
#include "common/status.h"

namespace storage
{
class tFileConverter
{
public:
    // A link is resolved: its target is converted in its own folder. `observer` may be null.
    tFileConverter(const std::string& path, iConversionObserver* observer);

    tStatus compress(const std::string& suffix);
    // Compresses also the whole records of a file that a full disk cut; leftOut() describes the rest.
    tStatus compressWhole(const std::string& suffix);
    // A file that was just recorded: `counted` has counted all of its segments. The result takes its own name, whatever
    // had it before, and then the source is removed. The source is also removed where the output could not be opened;
    // an output that opens but cannot be locked, for another process has it or the file system has no locks, leaves it
    // as it is, at once.
    tStatus compressRecorded(const std::string& suffix, iSegmentEncoder& counted);
    tStatus expand(const std::string& suffix);
    const std::string& path() const { return m_path; }      // of the source
    const std::string& result() const { return m_result; }  // its path
    const tLeftOut& leftOut() const { return m_leftOut; }

private:
    tStatus open(bool compressed, const char* otherwise);
    tStatus checkUndamaged() const;
    tStatus compressOpened(const std::string& suffix);
    tStatus openRecorded(std::uint64_t bytes);
    tStatus openOutput(const std::string& result);
    tStatus giveUpRecorded();
    tStatus encode(iSegmentEncoder& counted, const tStored& stored);
    template <typename tWork>
    tStatus write(tWork work);
    tProgressFunction progress(tConversionStep step);
    tStatus sync();
    tStatus checkWhole() const;
    tStatus replace();

    const std::string m_path;
    iConversionObserver* const m_observer;
    std::unique_ptr<tDataFileReader> m_source;
    std::unique_ptr<tOutputFile> m_out;
    std::uint64_t m_total = 0;  // bytes of payload
    std::string m_result;
    tLeftOut m_leftOut{};
};
}  // namespace storage

#endif
