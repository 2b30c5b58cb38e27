#include "KestovaStorage/datafileconverter.h"

#include <new>

#include "KestovaStorage/internal/conversion/fileconverter.h"
#include "KestovaStorage/internal/datafile/naming.h"

namespace storage
{
namespace
{
using tWork = tStatus (tFileConverter::*)(const std::string& suffix);

bool convert(const std::string& path, const std::string& suffix, iConversionObserver* observer, std::string* result,
             tLeftOut* leftOut, std::string* error, tWork work)
try
{
    tFileConverter converter(path, observer);
    const tStatus status = (converter.*work)(suffix).of(converter.path());
    if (status && result != nullptr)
        *result = converter.result();
    if (status && leftOut != nullptr)
        *leftOut = converter.leftOut();
    if (!status && error != nullptr)
        *error = status.text();
    return status.ok();
}
catch (const std::bad_alloc&)
{
    if (error != nullptr)
        *error = path + ": not enough memory";
    return false;
}
}  // namespace

bool tDataFileConverter::Compress(const std::string& path, const std::string& specifySuffix,
                                  iConversionObserver* observer, std::string* result, std::string* error)
{
    return convert(path, specifySuffix, observer, result, nullptr, error, &tFileConverter::compress);
}

bool tDataFileConverter::CompressWhole(const std::string& path, const std::string& specifySuffix,
                                       iConversionObserver* observer, std::string* result, tLeftOut* leftOut,
                                       std::string* error)
{
    return convert(path, specifySuffix, observer, result, leftOut, error, &tFileConverter::compressWhole);
}

bool tDataFileConverter::Expand(const std::string& path, const std::string& specifySuffix,
                                iConversionObserver* observer, std::string* result, std::string* error)
{
    return convert(path, specifySuffix, observer, result, nullptr, error, &tFileConverter::expand);
}

std::string tDataFileConverter::CompressedName(const std::string& path, const std::string& specifySuffix)
{
    return naming::compressedName(path, specifySuffix);
}
}  // namespace storage
