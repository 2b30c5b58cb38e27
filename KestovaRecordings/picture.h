// tPicture: a turn of the antenna as it is seen on a display.
#ifndef KESTOVA_RECORDINGS_PICTURE_H
#define KESTOVA_RECORDINGS_PICTURE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/navigation.h"
#include "KestovaRecordings/turn.h"
#include "KestovaRecordings/turnat.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
enum class ePalette
{
    eDay,
    eDusk,
    eNight,
    eGrey  // echoes as grey levels, 0 to 255
};
// Returns the palette of a name: "day", "dusk", "night", "grey".
KESTOVA_API std::optional<ePalette> paletteNamed(const std::string& name);

struct tPictureOptions
{
    std::size_t size = 900;  // of the sides, in pixels, 64 to 8,192
    double rangeM = 0;       // from own ship to the edge; 0: that of the turn
    bool rings = false;      // four range rings, the heading line, a scale of bearings
    bool targets = false;
    ePalette palette = ePalette::eDay;
};

// What the corners and the marks show.
struct tPictureFacts
{
    std::string date, time;                // a line each
    std::optional<std::uint64_t> missing;  // spokes of this turn that never came; absent where they have no numbers
    utils::tBearingReference up = utils::eReferenceUnknown;  // where the turn's bearings begin
    std::string remark;                                      // a line more; empty: none
    tOwnShip own;
    std::vector<tTarget> targets;
};

// Returns what a turn says of itself; without date and time.
KESTOVA_API tPictureFacts factsOf(const tTurnAt& turn);

// One thread at a time.
class KESTOVA_API tPicture
{
public:
    explicit tPicture(const tPictureOptions& options);
    ~tPicture();
    tPicture(const tPicture&) = delete;
    tPicture& operator=(const tPicture&) = delete;

    // Replaces the picture. Without spokes it is dark but for its marks.
    void draw(const tTurn& turn, const tPictureFacts& facts);

    std::size_t size() const;
    // Returns the pixels row by row from the top, 32 bits each: red, green and blue in the low
    // 24, the rest without meaning. Valid until the next draw.
    const std::uint32_t* pixels() const;
    // Writes a PNG file beside `path` and renames it; throws tFailure where that fails, and leaves nothing then. An
    // existing file is replaced.
    void writePng(const std::string& path) const;
    std::string png() const;  // returns the bytes of such a file; throws tFailure without memory

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace recordings

#endif
