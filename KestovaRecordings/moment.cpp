#include "KestovaRecordings/moment.h"

namespace recordings
{
double tMoment::resolve(std::uint64_t firstMs, std::uint64_t lastMs) const
{
    const double first = static_cast<double>(firstMs);
    if (kind == eAbsolute)
        return value;
    return kind == eOffset ? first + value : first + value * (static_cast<double>(lastMs) - first);
}
}  // namespace recordings
