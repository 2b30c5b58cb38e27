// Waits until the segments of blocks taken from a queue are filled: a producer may have been suspended in between.
#ifndef KESTOVA_STORAGE_BUFFERS_FILLEDBLOCKS_H
#define KESTOVA_STORAGE_BUFFERS_FILLEDBLOCKS_H

#include <chrono>
#include <cstddef>
#include <thread>

#include "KestovaStorage/internal/buffers/batchqueue.h"

inline void waitUntilFilled(const tSegmentBlock& block, std::size_t segment)
{
    constexpr int cSpins = 64;
    constexpr int cYields = 256;  // then it passes its core on, and at last it sleeps
    for (int tries = 0; !block.isFilled(segment); ++tries)
    {
        if (tries > cYields)
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        else if (tries > cSpins)
            std::this_thread::yield();
    }
}

inline void waitUntilFilled(const tSegmentBlocks& blocks)
{
    for (const auto& block : blocks)
    {
        for (std::size_t i = 0; i < block->count(); ++i)
            waitUntilFilled(*block, i);
    }
}

#endif
