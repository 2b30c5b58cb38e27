// tFileConverter: one finished data file on its way from one form to the other. The result is written beside it,
// compared, synced, and renamed over it.
//
// Threads  starts a second one while it works; the observer is called on the calling thread.
// Errors   a failure leaves the source untouched; the tStatus does not name it.
#ifndef KESTOVA_STORAGE_CONVERSION_FILECONVERTER_H
#define KESTOVA_STORAGE_CONVERSION_FILECONVERTER_H

#include <cstdint>
#include <memory>
#include <string>

#include "KestovaStorage/conversionobserver.h"
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
    tStatus expand(const std::string& suffix);
    const std::string& path() const { return m_path; }      // of the source
    const std::string& result() const { return m_result; }  // its path

private:
    tStatus open(tFileHeadSymbol kind, const char* otherwise);
    tStatus openOutput(const std::string& result);
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
};
}  // namespace storage

#endif
