// tSpokeReader: the spokes in the messages of one stream, by the layouts of a radar.
#ifndef KESTOVA_RECORDINGS_SPOKEREADER_H
#define KESTOVA_RECORDINGS_SPOKEREADER_H

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "KestovaRecordings/spoke.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// One thread at a time. Messages that no layout matches, or that are damaged, are passed over.
class KESTOVA_API tSpokeReader
{
public:
    // Of several layouts the first that matches a message counts.
    explicit tSpokeReader(std::vector<utils::tSpokeLayout> layouts);
    ~tSpokeReader();
    tSpokeReader(tSpokeReader&&) noexcept;
    tSpokeReader& operator=(tSpokeReader&&) noexcept;

    // Passes what the message holds to the sink. In the public standard a spoke may be split over several messages; it
    // is passed on whole, when a message of another spoke comes, with the place of the message that ended it.
    void read(std::string_view message, const tMessagePlace& place, iSpokeSink& sink);
    void finish(iSpokeSink& sink);  // passes on what is waiting for its end
    // Returns the place of the last message of the spoke that is waiting for its end; null if none is.
    const tMessagePlace* waiting() const;

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace recordings

#endif
