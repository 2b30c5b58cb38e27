#include "KestovaStorage/datafileconverter.h"

#include <new>

#include "KestovaStorage/internal/conversion/fileconverter.h"
#include "KestovaStorage/internal/datafile/naming.h"

namespace storage
{
namespace
{
using tWork = tStatus (tFileConverter::*)(const std::string& suffix);

tStatus converted(const std::string& path, const std::string& suffix, iConversionObserver* observer,
                  std::string* result, tWork work)
try
{
    tFileConverter converter(path, observer);
    tStatus status = (converter.*work)(suffix);
    if (status && result != nullptr)
        *result = converter.result();
    return std::move(status).of(converter.path());
}
catch (const std::bad_alloc&)
{
    return {tStatus::eCode::eNoMemory, path + ": not enough memory"};
}

bool convert(const std::string& path, const std::string& suffix, iConversionObserver* observer, std::string* result,
             std::string* error, tWork work)
{
    const tStatus status = converted(path, suffix, observer, result, work);
    if (!status && error != nullptr)
        *error = status.text();
    return status.ok();
}
}  // namespace

bool tDataFileConverter::Compress(const std::string& path, const std::string& specifySuffix,
                                  iConversionObserver* observer, std::string* result, std::string* error)
{
    return convert(path, specifySuffix, observer, result, error, &tFileConverter::compress);
}

bool tDataFileConverter::Expand(const std::string& path, const std::string& specifySuffix,
                                iConversionObserver* observer, std::string* result, std::string* error)
{
    return convert(path, specifySuffix, observer, result, error, &tFileConverter::expand);
}

std::string tDataFileConverter::CompressedName(const std::string& path, const std::string& specifySuffix)
{
    return naming::compressedName(path, specifySuffix);
}
}  // namespace storage
