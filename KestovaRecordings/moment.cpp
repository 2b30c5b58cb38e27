#include "KestovaRecordings/moment.h"

namespace recordings
{
double tMoment::resolve(std::uint64_t firstMs, std::uint64_t lastMs) const
{
    const double first = static_cast<double>(firstMs);
    const double last = static_cast<double>(lastMs);
    switch (kind)
    {
    case eFraction:
        return first + value * (last - first);
    case eOffset:
        return first + value;
    case eFromEnd:
        return last - value;
    default:
        return value;
    }
}
}  // namespace recordings
