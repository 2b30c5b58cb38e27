// tPictureSession: pictures of what a radar showed: of a moment, or of every turn.
#ifndef KESTOVA_SESSIONS_PICTURE_PICTURESESSION_H
#define KESTOVA_SESSIONS_PICTURE_PICTURESESSION_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "KestovaRecordings/picture.h"
#include "KestovaRecordings/timerange.h"
#include "KestovaRecordings/turnat.h"
#include "KestovaUtils/spokelayout.h"

namespace session
{
struct tPictureJob
{
    std::string name;                // of the recording, for messages
    std::vector<std::string> files;  // data files
    std::string suffix = ".data";
    std::vector<utils::tSpokeLayout> layouts;
    bool northUp = false;
    recordings::tPictureOptions picture;
    std::function<std::string(std::uint64_t ms)> timeText;  // "2024-05-17 08:30:00.250"
};

// What was drawn.
struct tDrawn
{
    std::uint64_t firstMs = 0, lastMs = 0;  // of the spokes
    std::uint64_t spokes = 0, missing = 0;
    double covered = 0, rangeM = 0;  // of the last turn
    bool isNorthUp = false;
    utils::tBearingReference reference = utils::eReferenceUnknown;  // of the bearings as they were received
    std::uint64_t pictures = 0;
    bool isComplete = true;
};

// One thread at a time.
class tPictureSession
{
public:
    explicit tPictureSession(tPictureJob job);

    const recordings::tTimeRange& recording() const { return m_recording; }

    // Writes a PNG file of the last 360 degrees up to `atMs`. Throws tFailure if there are no spokes, or it cannot be
    // written.
    tDrawn drawMoment(std::uint64_t atMs, const std::string& path);
    std::string pngOfMoment(std::uint64_t atMs);  // returns the bytes of that file

    // Called after each picture of several with the part that is done, 0 to 1; returns whether to go on.
    using tProgress = std::function<bool(double fraction, const tDrawn& drawn)>;
    // Write a picture of each turn: PNG files whose names sort by time into the folder, which is made if it is not
    // there, and must be empty; or frames of a video to the descriptor, one every turn at the pace of the first whole
    // one. Throw tFailure if no turn was finished, and where writing fails; tPipeClosed if nobody reads the video.
    tDrawn drawTurns(const std::string& folder, const tProgress& goOn);
    tDrawn streamTurns(int output, const tProgress& goOn);

private:
    void draw(const recordings::tTurnAt& turn);
    void drawAt(std::uint64_t atMs);
    tDrawn forEachTurn(const std::function<bool(const recordings::tTurnAt& turn)>& write, const tProgress& goOn);

    const tPictureJob m_job;
    const recordings::tTimeRange m_recording;
    recordings::tPicture m_picture;
    tDrawn m_drawn;
};
}  // namespace session

#endif
