// tWireLoss: messages that were numbered and never came.
#ifndef KESTOVA_RECORDINGS_WIRELOSS_H
#define KESTOVA_RECORDINGS_WIRELOSS_H

#include <bitset>
#include <cstdint>

#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Counts the numbers of one stream that are missing. A wrap of the counter, a restart (a jump back, or to a low
// number from far below the wrap), and messages that come twice, or late by fewer than 1,024 numbers, are no loss. One
// thread at a time.
class KESTOVA_API tWireLoss
{
public:
    // Takes the number of a message; its counter has `bits` bits (1 to 64).
    void add(std::uint64_t number, unsigned bits);
    // A message that takes a number, perhaps, and shows none: a summary.
    void addUnnumbered() { ++m_unnumbered; }

    std::uint64_t missing() const { return m_missing; }

private:
    static constexpr std::uint64_t cWindow = 1024;

    void goOn(std::uint64_t number, std::uint64_t steps, std::uint64_t mask);
    void comeLate(std::uint64_t number);

    bool m_begun = false;
    std::uint64_t m_last = 0;  // the highest number so far
    std::uint64_t m_missing = 0;
    std::uint64_t m_unnumbered = 0;  // since the last number
    std::bitset<cWindow> m_missed;   // of the numbers behind m_last, by number modulo cWindow
};
}  // namespace recordings

#endif
