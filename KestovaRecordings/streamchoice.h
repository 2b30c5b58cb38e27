// The names of stream kinds and message kinds, and a choice of streams.
#ifndef KESTOVA_RECORDINGS_STREAMCHOICE_H
#define KESTOVA_RECORDINGS_STREAMCHOICE_H

#include <bitset>
#include <string>
#include <vector>

#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Return the names as in directory files and options.
KESTOVA_API std::string streamTitle(tReadWriteType kind);  // "imageStream"; "kind 42" for a number without a name
KESTOVA_API std::string messageTitle(tMsgType type);       // "readType"; "type 42"
KESTOVA_API std::string allStreamNames();                  // separated by ", "

// A set of stream kinds; the empty set includes all of them.
class tStreamChoice
{
public:
    void choose(tReadWriteType kind) { m_kinds.set(kind); }
    bool includes(tReadWriteType kind) const { return m_kinds.none() || m_kinds.test(kind); }
    bool includesAll() const { return m_kinds.none(); }

private:
    std::bitset<256> m_kinds;
};

// Returns the choice of the names in the texts, separated by commas in each. Throws std::invalid_argument with a
// sentence for the user.
KESTOVA_API tStreamChoice parseStreams(const std::vector<std::string>& texts);
}  // namespace recordings

#endif
