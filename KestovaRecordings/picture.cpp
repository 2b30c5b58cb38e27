#include "KestovaRecordings/picture.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <numbers>
#include <sys/stat.h>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/canvas.h"
#include "KestovaRecordings/internal/palette.h"
#include "KestovaRecordings/internal/picturetexts.h"
#include "KestovaRecordings/scanconverter.h"
#include "common/descriptor.h"

namespace recordings
{
namespace
{
constexpr std::size_t cSmallest = 64, cLargest = 8192, cSmallestWithLabels = 450;
constexpr double cMetresPerNm = 1852;
constexpr double cVectorHours = 0.1;  // a target's vector is where it will be in 6 minutes
constexpr int cRings = 4;

void writeBeside(const std::string& path, const std::string& bytes)
{
    const std::string part = path + ".part";
    bool isMade = false;
    const auto fail = [&] {
        const int error = errno;
        if (isMade)
            std::remove(part.c_str());
        throw tFailure(fmt::format("{} cannot be written: {}", path, std::strerror(error)));
    };
    struct stat there
    {};
    if (::stat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode))  // a device or a pipe is not to be replaced
        throw tFailure(fmt::format("{} cannot be written: it is no regular file", path));
    tDescriptor file(::open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666));
    isMade = file.valid();
    if (!isMade || !file.writeAllAt(bytes.data(), bytes.size(), 0))
        fail();
    file.reset();
    if (std::rename(part.c_str(), path.c_str()) != 0)
        fail();
}
}  // namespace

std::optional<ePalette> paletteNamed(const std::string& name)
{
    constexpr std::pair<const char*, ePalette> cNames[] = {
        {"day", ePalette::eDay}, {"dusk", ePalette::eDusk}, {"night", ePalette::eNight}, {"grey", ePalette::eGrey}};
    for (const auto& [known, palette] : cNames)
    {
        if (name == known)
            return palette;
    }
    return std::nullopt;
}

class tPicture::tPrivate
{
public:
    explicit tPrivate(const tPictureOptions& options)
        : m_options(options), m_size(std::clamp(options.size, cSmallest, cLargest)),
          m_middle(static_cast<double>(m_size) / 2), m_converter(m_size), m_colours(coloursOf(options.palette)),
          m_levels(m_size * m_size), m_pixels(m_size * m_size), m_canvas(m_pixels.data(), m_size)
    {}

    void draw(const tTurn& turn, const tPictureFacts& facts)
    {
        m_facts = &facts;
        m_rangeM = m_options.rangeM > 0 ? m_options.rangeM : turn.rangeM();
        const bool knowsRange = turn.rangeM() > 0;
        m_rangeM = knowsRange ? m_rangeM : 1;  // of cells without a length, as tTurn takes them
        m_converter.convert(turn.image(), m_rangeM, m_levels.data());
        m_canvas.beginPixels();
        colour();
        m_canvas.endPixels();
        if (m_options.rings)
            drawRings();
        if (m_options.targets && knowsRange)
            drawTargets();
        drawCorners(turn, knowsRange);
        m_canvas.beginPixels();
    }

    std::size_t size() const { return m_size; }
    const std::uint32_t* pixels() const { return m_pixels.data(); }
    std::string png() const
    {
        std::string bytes = m_canvas.png();
        if (bytes.empty())
            throw tFailure("the picture cannot be written: not enough memory");
        return bytes;
    }

private:
    void colour()
    {
        const double edge = m_middle * m_middle;
        for (std::size_t row = 0; row < m_size; ++row)
        {
            const double y = static_cast<double>(row) + 0.5 - m_middle;
            const double across = std::sqrt(std::max(edge - y * y, 0.0));
            const auto first = static_cast<std::size_t>(m_middle - across), end = m_size - first;
            for (std::size_t i = row * m_size; i < (row + 1) * m_size; ++i)
            {
                const std::size_t column = i - row * m_size;
                const bool inside = (column >= first && column < end) || m_levels[i] != 0;
                m_pixels[i] = inside ? m_colours.echoes[m_levels[i]] : m_colours.outside;
            }
        }
    }

    double placeX(double angle, double away) const { return m_middle + away * std::sin(angle); }
    double placeY(double angle, double away) const { return m_middle - away * std::cos(angle); }

    // Returns the direction in the picture, in radians, of a bearing; nothing if it is not known.
    std::optional<double> angleOf(double bearingDeg, utils::tBearingReference reference) const
    {
        const std::optional<double>& heading = m_facts->own.headingDeg.value;
        const bool isSame = reference == m_facts->up;
        if (reference == utils::eReferenceUnknown || m_facts->up == utils::eReferenceUnknown || (!isSame && !heading))
            return std::nullopt;
        const double turned = isSame ? 0 : reference == utils::eReferenceNorth ? -*heading : *heading;
        return (bearingDeg + turned) * std::numbers::pi / 180;
    }

    void drawRings()
    {
        m_canvas.setWidth(1);
        m_canvas.setColour(m_colours.marks, 0.55);
        for (int ring = 1; ring <= cRings; ++ring)
            m_canvas.circle(m_middle, m_middle, (m_middle - 0.5) * ring / cRings);
        m_canvas.setColour(m_colours.marks, 0.8);
        constexpr int cStepDeg = 10, cLongEach = 30;
        for (int degrees = 0; degrees < 360; degrees += cStepDeg)
        {
            const double angle = degrees * std::numbers::pi / 180;
            const double from = m_middle * (degrees % cLongEach == 0 ? 0.967 : 0.983);
            m_canvas.line(placeX(angle, from), placeY(angle, from), placeX(angle, m_middle), placeY(angle, m_middle));
        }
        if (const auto bow = angleOf(0, utils::eReferenceBow))
        {
            m_canvas.setColour(m_colours.text, 0.9);
            m_canvas.line(m_middle, m_middle, placeX(*bow, m_middle), placeY(*bow, m_middle));
        }
    }

    void drawTargets()
    {
        for (const tTarget& target : m_facts->targets)
        {
            const auto where = placeOf(target, m_facts->own);
            const auto angle = where ? angleOf(where->bearingDeg, where->reference) : std::nullopt;
            if (angle && where->metres <= m_rangeM)
                drawTarget(target, placeX(*angle, where->metres / m_rangeM * m_middle),
                           placeY(*angle, where->metres / m_rangeM * m_middle));
        }
    }

    void drawTarget(const tTarget& target, double x, double y)
    {
        const double radius = m_canvas.fontSize() * 0.55;
        const std::optional<double> directionDeg = target.headingDeg ? target.headingDeg : target.courseDeg;
        m_canvas.setColour(m_colours.targets);
        m_canvas.setWidth(std::max(1.0, static_cast<double>(m_size) / 700));
        if (target.isAis)
            m_canvas.triangle(x, y, radius, directionOf(directionDeg).value_or(0));
        else
            m_canvas.circle(x, y, radius);
        if (const auto course = directionOf(target.courseDeg); course && target.speedKn)
            drawVector(target.isAis, x, y, *course, *target.speedKn * cVectorHours * cMetresPerNm);
        const std::string text = labelOf(target);
        if (m_size >= cSmallestWithLabels && !text.empty())
            m_canvas.label(x + radius * 1.7, target.isAis ? y + m_canvas.fontSize() : y - radius, text,
                           m_colours.targets, m_colours.outside);
    }

    void drawVector(bool isAis, double x, double y, double angle, double metres)
    {
        const double length = metres / m_rangeM * m_middle;
        const double toX = x + length * std::sin(angle), toY = y - length * std::cos(angle);
        if (isAis)
            m_canvas.dashedLine(x, y, toX, toY);
        else
            m_canvas.line(x, y, toX, toY);
    }

    std::optional<double> directionOf(const std::optional<double>& trueDeg) const
    {
        return trueDeg ? angleOf(*trueDeg, utils::eReferenceNorth) : std::nullopt;
    }

    void drawCorners(const tTurn& turn, bool knowsRange)
    {
        writeLines(eCorner::eUpperLeft, {m_facts->date, m_facts->time}, m_colours.text);
        writeLines(eCorner::eUpperRight,
                   {knowsRange ? rangeText(m_rangeM) : "range unknown",
                    m_options.rings && knowsRange ? "rings " + rangeText(m_rangeM / cRings) : "", upText(m_facts->up)},
                   m_colours.text);
        writeLines(eCorner::eLowerLeft, ownShipTexts(m_facts->own), m_colours.text);
        writeLines(eCorner::eLowerRight, warningTexts(turn, *m_facts), m_colours.targets);
    }

    // Lines of the lower corners stand on one another from the picture's edge on.
    void writeLines(eCorner corner, std::vector<std::string> lines, std::uint32_t colour)
    {
        std::erase(lines, "");
        const bool isLow = corner == eCorner::eLowerLeft || corner == eCorner::eLowerRight;
        if (isLow)
            std::reverse(lines.begin(), lines.end());
        for (std::size_t i = 0; i < lines.size(); ++i)
            m_canvas.cornerText(corner, static_cast<int>(i), lines[i], colour);
    }

    const tPictureOptions m_options;
    const std::size_t m_size;
    const double m_middle;
    tScanConverter m_converter;
    const tColours m_colours;
    std::vector<unsigned char> m_levels;
    std::vector<std::uint32_t> m_pixels;
    tCanvas m_canvas;                        // over m_pixels
    const tPictureFacts* m_facts = nullptr;  // of the picture that is being drawn
    double m_rangeM = 1;
};

tPicture::tPicture(const tPictureOptions& options) : d(new tPrivate(options)) {}
tPicture::~tPicture() = default;

void tPicture::draw(const tTurn& turn, const tPictureFacts& facts)
{
    d->draw(turn, facts);
}

std::size_t tPicture::size() const
{
    return d->size();
}

const std::uint32_t* tPicture::pixels() const
{
    return d->pixels();
}

void tPicture::writePng(const std::string& path) const
{
    writeBeside(path, d->png());
}

std::string tPicture::png() const
{
    return d->png();
}
}  // namespace recordings
