// Where the numbers of a radar's spokes stand in its messages, as directory files say with the key "spoke".
//
// docs/radars.md describes the key. Everything is checked when the text is read; who reads spokes by a layout checks
// only that the message is long enough.
#ifndef KESTOVA_SPOKELAYOUT_H
#define KESTOVA_SPOKELAYOUT_H

#include <stdint.h>
#include <string>
#include <vector>

#include "UdpSocket/kestovaapi.h"

namespace utils
{
enum tSpokeSource
{
    eSpokeFields,  // fields at fixed places
    eSpokeCat240   // the public standard for radar video, ASTERIX category 240; only `reference` counts
};

// What a bearing of 0 is.
enum tBearingReference
{
    eReferenceUnknown,
    eReferenceBow,
    eReferenceNorth
};

// A whole number in a message, or one that is always the same.
struct tSpokeField
{
    uint32_t at = 0;    // offset of the first byte
    uint8_t width = 0;  // bytes, 1 to 8; 0: no field
    uint8_t shift = 0;  // bits to the right, after the mask
    uint64_t mask = ~uint64_t(0);
    double constant = 0;  // without a field: the number; 0: the radar has none

    bool isField() const { return width != 0; }
    bool isGiven() const { return isField() || constant != 0; }
};

// Bytes that every spoke has at a place.
struct tSpokeMatch
{
    uint32_t at;
    std::string bytes;
};

struct tSpokeLayout
{
    tSpokeSource source = eSpokeFields;
    tBearingReference reference = eReferenceUnknown;
    bool bigEndian = false;  // of whole bytes
    std::vector<tSpokeMatch> match;
    tSpokeField azimuth;  // in steps of 1 / perTurn of a turn
    tSpokeField perTurn;
    tSpokeField range;     // to the far edge of the last cell; not given: unknown
    double rangeUnit = 1;  // metres
    tSpokeField sequence;
    tSpokeField time;     // since the Unix epoch
    double timeUnit = 1;  // ms
    uint32_t cellsAt = 0;
    tSpokeField cellCount;
    bool cellsToTheEnd = false;  // as many as the message holds from cellsAt on
    uint8_t cellBits = 8;        // 1, 2, 4, 8, 12, 16, 24 or 32; the first cell in the high bits
};

// Reads the value of a key "spoke" (one layout, "cat240", or a list of layouts, of which the first that matches a
// message counts) from its JSON text. Returns false on an error in it, with `layouts` unchanged and the key and the
// reason in `error`. Any thread.
KESTOVA_API bool parseSpokeLayouts(const std::string& text, std::vector<tSpokeLayout>& layouts, std::string& error);

// Reads a file with an object that has the key "spoke" (and may have others, which are not looked at); `error` begins
// with the path. `text`, unless null, gets the value's JSON text, as parseSpokeLayouts reads it. Any thread.
KESTOVA_API bool readSpokeLayouts(const std::string& path, std::vector<tSpokeLayout>& layouts, std::string& error,
                                  std::string* text = nullptr);
}  // namespace utils

#endif
