// tMoment: a place in a recording, given before its span is known.
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
        eAbsolute,  // ms since the Unix epoch
        eFromEnd    // ms before the last record
    };
    eKind kind = eFraction;
    double value = 0.0;

    // Returns the moment in ms since the epoch, for a recording with these times of its first and last record. The
    // result may be outside the two.
    double resolve(std::uint64_t firstMs, std::uint64_t lastMs) const;
};
}  // namespace recordings

#endif
