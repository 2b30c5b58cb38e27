// Spokes from messages whose fields stand at fixed places.
#ifndef KESTOVA_RECORDINGS_LAYOUTSPOKES_H
#define KESTOVA_RECORDINGS_LAYOUTSPOKES_H

#include <optional>
#include <string_view>

#include "KestovaRecordings/spoke.h"
#include "KestovaUtils/spokelayout.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Returns whether the message has the bytes that every spoke of the layout has. `layout` is one of fields.
KESTOVA_API bool matches(const utils::tSpokeLayout& layout, std::string_view message);

// Returns the spoke in a message that matches; its cells are a view of the message. Returns nothing if the message is
// too short for a field, has no cells, or its azimuth is beyond the turn. Any thread.
KESTOVA_API std::optional<tSpoke> readSpoke(const utils::tSpokeLayout& layout, std::string_view message);

// Returns the number of a message that matches, whatever else is wrong with it.
KESTOVA_API std::optional<std::uint64_t> sequenceIn(const utils::tSpokeLayout& layout, std::string_view message);

// Returns the width in bits of a field's numbers.
KESTOVA_API unsigned widthOf(const utils::tSpokeField& field);
}  // namespace recordings

#endif
