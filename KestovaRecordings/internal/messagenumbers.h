// tMessageNumbers: the numbers of a radar's spokes as numbers of 32 bits.
#ifndef KESTOVA_RECORDINGS_MESSAGENUMBERS_H
#define KESTOVA_RECORDINGS_MESSAGENUMBERS_H

#include <cstdint>
#include <optional>

namespace recordings
{
// A counter that wraps before 32 bits goes on; one that restarts starts anew. Missing numbers stay missing, late and
// repeated ones keep theirs. One thread at a time.
class tMessageNumbers
{
public:
    // Takes the next spoke: its number by a counter of `bits` bits, nothing if it has none, and how many messages it
    // makes. Returns the number of the first of them.
    std::uint32_t next(std::optional<std::uint64_t> number, unsigned bits, std::uint32_t messages);
    // Returns whether the last spoke came right behind the one before it, as far as numbers say.
    bool isConsecutive() const { return m_isConsecutive; }

private:
    void goOn(std::uint64_t steps, std::uint32_t messages);

    bool m_isBegun = false, m_isConsecutive = false;
    bool m_isLate = false;         // the last spoke, or it was repeated
    std::uint64_t m_last = 0;      // the radar's highest number so far
    std::uint32_t m_first = 0;     // that stands for it
    std::uint32_t m_messages = 0;  // that it made
};
}  // namespace recordings

#endif
