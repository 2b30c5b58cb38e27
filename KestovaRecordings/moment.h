// tMoment: a place in a recording whose span is not known yet.
#ifndef KESTOVA_RECORDINGS_MOMENT_H
#define KESTOVA_RECORDINGS_MOMENT_H

#include <cstdint>

#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct KESTOVA_API tMoment
{
    enum eKind
    {
        eFraction,  // of the span, 0 to 1
        eOffset,    // ms after the first record
        eAbsolute   // ms since the Unix epoch
    };
    eKind kind = eFraction;
    double value = 0.0;

    // Returns the moment in ms since the epoch, for a recording with this first and last record. May lie outside.
    double resolve(std::uint64_t firstMs, std::uint64_t lastMs) const;
};
}  // namespace recordings

#endif
