#include "sessions/picture/picturesession.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <optional>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "sessions/picture/y4mwriter.h"

namespace session
{
using namespace recordings;

namespace
{
std::string remarkOn(const tTurnAt& turn)
{
    return turn.reference == utils::eReferenceUnknown ? "north not known: no reference" : "north not known: no heading";
}

void requireEmpty(const std::string& folder)
{
    std::error_code error;
    std::filesystem::create_directory(folder, error);
    if (error)
        throw tFailure(fmt::format("{} cannot be made: {}", folder, error.message()));
    const std::filesystem::directory_iterator entries(folder, error);
    if (error)
        throw tFailure(fmt::format("{}: {}", folder, error.message()));
    if (entries != std::filesystem::directory_iterator())
        throw tFailure(fmt::format("{} is not empty: the pictures get a folder of their own", folder));
}

// "00000012_2024-05-17_08-30-00.250.png": sorts by time even where the clock was set back.
std::string pictureName(std::uint64_t number, std::string time)
{
    std::replace(time.begin(), time.end(), ' ', '_');
    std::replace(time.begin(), time.end(), ':', '-');
    return fmt::format("{:08}_{}.png", number, time);
}

constexpr double cLongestTurnMs = 600'000;

// How long a whole turn takes.
std::uint64_t periodOf(const tTurn& turn)
{
    const double steps = static_cast<double>(turn.spokes()), between = std::max(steps - 1, 1.0);
    const double lasted =
        static_cast<double>(turn.lastMs() - std::min(turn.firstMs(), turn.lastMs())) * steps / between;
    return static_cast<std::uint64_t>(
        std::llround(std::clamp(lasted / std::max(turn.covered(), 0.01), 1.0, cLongestTurnMs)));
}

// Frames at the pace of the first whole turn: a recording begins amid a turn, whose frame waits for the next one.
class tVideo
{
public:
    tVideo(int output, std::size_t size, tY4mWriter::tGoOn goOn)
        : m_output(output), m_size(size), m_goOn(std::move(goOn))
    {}

    // Returns whether to go on.
    bool add(const tTurn& turn, const std::uint32_t* pixels)
    {
        const bool isWhole = turn.covered() >= cWholeTurn;
        if (!m_writer && !isWhole && m_waiting.empty())
        {
            m_waiting.assign(pixels, pixels + m_size * m_size);
            m_periodMs = periodOf(turn);
            return true;
        }
        m_periodMs = isWhole ? periodOf(turn) : m_periodMs;
        return begin() && m_writer->write(pixels);
    }
    void finish()
    {
        if (!m_waiting.empty())
            begin();
    }

private:
    bool begin()
    {
        if (!m_writer)
            m_writer.emplace(m_output, m_size, m_periodMs, m_goOn);
        const std::vector<std::uint32_t> waiting = std::exchange(m_waiting, {});
        return waiting.empty() || m_writer->write(waiting.data());
    }

    const int m_output;
    const std::size_t m_size;
    const tY4mWriter::tGoOn m_goOn;
    std::optional<tY4mWriter> m_writer;
    std::vector<std::uint32_t> m_waiting;  // the frame of the first turn
    std::uint64_t m_periodMs = 0;
};
}  // namespace

tPictureSession::tPictureSession(tPictureJob job)
    : m_job(std::move(job)), m_recording(m_job.files, m_job.suffix), m_picture(m_job.picture)
{}

void tPictureSession::draw(const tTurnAt& turn)
{
    tPictureFacts facts = factsOf(turn);
    const std::string time = m_job.timeText(turn.turn.lastMs());
    const std::size_t blank = time.find(' ');
    facts.date = time.substr(0, blank);
    facts.time = blank == std::string::npos ? "" : time.substr(blank + 1);
    const bool isNorthUp = turn.up == utils::eReferenceNorth;
    if (m_job.northUp && !isNorthUp)
        facts.remark = remarkOn(turn);
    m_picture.draw(turn.turn, facts);
    m_drawn.firstMs = m_drawn.pictures == 0 ? turn.turn.firstMs() : m_drawn.firstMs;
    m_drawn.lastMs = turn.turn.lastMs();
    m_drawn.spokes += turn.turn.spokes();
    m_drawn.missing += turn.missing;
    m_drawn.covered = turn.turn.shown();
    m_drawn.rangeM = turn.turn.rangeM();
    m_drawn.isNorthUp = isNorthUp;
    m_drawn.reference = turn.reference;
    ++m_drawn.pictures;
}

void tPictureSession::drawAt(std::uint64_t atMs)
{
    tTurnAt turn = turnAt(m_recording, m_job.layouts, atMs, m_job.northUp ? eUp::eNorth : eUp::eAsReceived);
    if (turn.turn.spokes() == 0)
        throw tFailure(fmt::format("{}: no spokes up to {}", m_job.name, m_job.timeText(atMs)));
    if (m_job.picture.targets)
        turn.navigation = navigationAt(m_recording, atMs);
    m_drawn = {};
    draw(turn);
}

tDrawn tPictureSession::drawMoment(std::uint64_t atMs, const std::string& path)
{
    drawAt(atMs);
    m_picture.writePng(path);
    return m_drawn;
}

std::string tPictureSession::pngOfMoment(std::uint64_t atMs)
{
    drawAt(atMs);
    return m_picture.png();
}

tDrawn tPictureSession::forEachTurn(const std::function<bool(const tTurnAt& turn)>& write, const tProgress& goOn)
{
    m_drawn = {};
    const auto span = static_cast<double>(std::max<std::uint64_t>(m_recording.lastMs() - m_recording.firstMs(), 1));
    const bool isComplete = forEachRevolution(
        m_recording, m_job.layouts, m_job.northUp ? eUp::eNorth : eUp::eAsReceived,
        [&](const tTurnAt& turn) {
            draw(turn);
            return write(turn);
        },
        [&](std::uint64_t timeMs) {
            const std::uint64_t past = timeMs - std::min(timeMs, m_recording.firstMs());
            return goOn(std::min(static_cast<double>(past) / span, 1.0), m_drawn);
        });
    if (m_drawn.pictures == 0)
        throw tFailure(m_job.name + (isComplete ? ": no spokes of a turn that is finished"
                                                : ": interrupted before the end of a turn"));
    m_drawn.isComplete = isComplete;
    return m_drawn;
}

tDrawn tPictureSession::drawTurns(const std::string& folder, const tProgress& goOn)
{
    requireEmpty(folder);
    return forEachTurn(
        [&](const tTurnAt& turn) {
            const std::string name = pictureName(m_drawn.pictures - 1, m_job.timeText(turn.turn.firstMs()));
            m_picture.writePng((std::filesystem::path(folder) / name).string());
            return true;
        },
        goOn);
}

tDrawn tPictureSession::streamTurns(int output, const tProgress& goOn)
{
    double fraction = 0;
    tVideo video(output, m_picture.size(), [&] { return goOn(fraction, m_drawn); });
    const tDrawn drawn = forEachTurn([&](const tTurnAt& turn) { return video.add(turn.turn, m_picture.pixels()); },
                                     [&](double done, const tDrawn& soFar) { return goOn(fraction = done, soFar); });
    video.finish();
    return drawn;
}
}  // namespace session
