// guessCells: where the cells of a spoke lie in its messages, and how wide they are.
#ifndef KESTOVA_RECORDINGS_INTERNAL_CELLSGUESS_H
#define KESTOVA_RECORDINGS_INTERNAL_CELLSGUESS_H

#include <cstddef>
#include <string>

#include "KestovaRecordings/internal/countingfields.h"

namespace recordings
{
struct tCellsGuess
{
    std::size_t at = 0;
    unsigned bits = 8;
    bool isSure = false;    // of both
    bool toTheEnd = false;  // messages differ in length
    std::string why;

    std::size_t count(std::size_t length) const { return (length - at) * 8 / bits; }
};

// `headEnd`: where the last known field ends. The messages are longer.
tCellsGuess guessCells(const tMessages& messages, std::size_t headEnd);
}  // namespace recordings

#endif
