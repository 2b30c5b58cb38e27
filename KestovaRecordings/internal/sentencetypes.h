// What the sentences say, type by type.
//
// Source: IEC 61162-1. Places of fields are counted from the address, 0.
#ifndef KESTOVA_RECORDINGS_SENTENCETYPES_H
#define KESTOVA_RECORDINGS_SENTENCETYPES_H

#include <cstdint>

#include "KestovaRecordings/internal/sentencefields.h"
#include "KestovaRecordings/sentence.h"

namespace recordings
{
// Adds what the fields say to `sentence`, whose type is set; nothing for a type that is not known, or VDM and VDO.
void readSentenceType(const tSentenceFields& fields, std::uint64_t timeMs, tSentence& sentence);
}  // namespace recordings

#endif
