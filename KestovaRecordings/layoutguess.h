// tLayoutGuesser: how the spokes of an unknown radar may be laid out, from its messages alone.
#ifndef KESTOVA_RECORDINGS_LAYOUTGUESS_H
#define KESTOVA_RECORDINGS_LAYOUTGUESS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tLayoutGuess
{
    std::string spoke;                                     // JSON for utils::parseSpokeLayouts
    std::vector<std::pair<std::string, std::string>> why;  // a sentence for each key of it, and for those it lacks
    std::vector<std::string> unsure;                       // keys that the data does not decide
};

// One thread at a time. Needs the messages of a turn and a little more, in their order.
class KESTOVA_API tLayoutGuesser
{
public:
    // Takes the next message of a stream, and when it was recorded. Returns false once it has enough: 20,000 messages,
    // or 64 MiB.
    bool add(std::string_view message, std::uint64_t timeMs);

    // Returns nothing if the messages are too few, or no number in them turns like an antenna; `reason` says which.
    std::optional<tLayoutGuess> guess(std::string& reason) const;

private:
    std::vector<std::string> m_messages;
    std::vector<std::uint64_t> m_timesMs;
    std::size_t m_bytes = 0;
};
}  // namespace recordings

#endif
