// AIS messages, as VDM and VDO sentences carry them: bits, six in a character.
//
// Source: ITU-R M.1371, tables of messages 1 to 5, 18, 19, 21 and 24.
#ifndef KESTOVA_RECORDINGS_AISMESSAGE_H
#define KESTOVA_RECORDINGS_AISMESSAGE_H

#include <string_view>

#include "KestovaRecordings/sentence.h"

namespace recordings
{
// Adds what the message says to `sentence`. `payload` is armoured: six bits a character; `fillBits` of the last one, 0
// to 5, do not count. A message that is too short for a field has none.
void readAisMessage(std::string_view payload, unsigned fillBits, tSentence& sentence);
}  // namespace recordings

#endif
