// tMissingMessages: what is missing on the wire of every stream of a recording.
#ifndef KESTOVA_RECORDINGS_MISSINGMESSAGES_H
#define KESTOVA_RECORDINGS_MISSINGMESSAGES_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaRecordings/streamcounts.h"
#include "KestovaUtils/spokelayout.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tSheet;

// Messages that were numbered and never came: of the streams whose messages have numbers.
using tMissingCounts = std::map<tStreamKey, std::uint64_t>;

// Returns the sum; nothing where no stream has numbers.
KESTOVA_API std::optional<std::uint64_t> total(const tMissingCounts& missing);
// Sets the numbers of the streams and their sum in a sheet.
KESTOVA_API void setMissing(tSheet& sheet, const tMissingCounts& missing);
// Returns the layouts of a sheet; none if it has none, or they cannot be read.
KESTOVA_API std::vector<utils::tSpokeLayout> spokeLayoutsOf(const tSheet& sheet);

// Counts as tWireLoss does, stream by stream; in the public standard each data source numbers for itself. One thread at
// a time.
class KESTOVA_API tMissingMessages
{
public:
    explicit tMissingMessages(std::vector<utils::tSpokeLayout> layouts);
    ~tMissingMessages();
    tMissingMessages(tMissingMessages&&) noexcept;
    tMissingMessages& operator=(tMissingMessages&&) noexcept;

    // Takes a record's segment. Passes over what is no package with spokes.
    void add(std::string_view segment);
    // Counts from 0 on: the numbers go on from what came before.
    void startAnew();
    tMissingCounts missing() const;

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace recordings

#endif
