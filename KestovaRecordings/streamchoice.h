// The names of stream kinds and message kinds, as directory files and options spell them.
#ifndef KESTOVA_RECORDINGS_STREAMCHOICE_H
#define KESTOVA_RECORDINGS_STREAMCHOICE_H

#include <bitset>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaStorage/radarmsgpackage.h"

namespace tool
{
std::string streamName(tReadWriteType kind);  // "imageStream"; "kind 42" for a number without a name
std::string messageName(tMsgType type);       // "readType"; "type 42"

// Stream kinds chosen on the command line; nothing chosen means all.
class tStreamChoice
{
public:
    void choose(tReadWriteType kind) { m_kinds.set(kind); }
    bool includes(tReadWriteType kind) const { return m_kinds.none() || m_kinds.test(kind); }
    bool includesAll() const { return m_kinds.none(); }

private:
    std::bitset<256> m_kinds;
};

// Names, separated by commas in each text. Throws std::invalid_argument with a sentence for the user.
tStreamChoice parseStreams(const std::vector<std::string>& texts);
// All names that parseStreams knows, for help and messages.
std::string allStreamNames();
}  // namespace tool

#endif
