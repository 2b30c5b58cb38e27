#include "KestovaRecordings/missingmessages.h"

#include <algorithm>
#include <deque>
#include <numeric>
#include <utility>

#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/layoutspokes.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/wireloss.h"
#include "KestovaStorage/packageview.h"

namespace recordings
{
namespace
{
constexpr unsigned cStandardBits = 32;    // of the numbers of the public standard
constexpr std::size_t cMostSources = 16;  // of a stream; further ones are not counted
constexpr std::size_t cMostStreams = 256;

using tLayouts = std::vector<utils::tSpokeLayout>;

// One stream.
class tNumbers final : private iCat240Sink
{
public:
    explicit tNumbers(const tStreamKey& stream) : key(stream) {}

    void add(const tLayouts& layouts, std::string_view message)
    {
        for (const utils::tSpokeLayout& layout : layouts)
        {
            if (layout.source == utils::eSpokeCat240)
            {
                if (readCat240(message, *this))
                    return;
            }
            else if (matches(layout, message))
            {
                if (const auto number = sequenceIn(layout, message))
                    addNumber(0, *number, widthOf(layout.sequence));
                return;
            }
        }
    }
    void startAnew() { m_before = sum(); }
    bool areThere() const { return !m_sources.empty(); }
    std::uint64_t missing() const
    {
        const std::uint64_t all = sum();
        return all - std::min(all, m_before);  // some of those before may have come late
    }

    const tStreamKey key;

private:
    std::uint64_t sum() const
    {
        return std::accumulate(
            m_sources.begin(), m_sources.end(), std::uint64_t{0},
            [](std::uint64_t before, const auto& source) { return before + source.second.missing(); });
    }
    void addNumber(unsigned source, std::uint64_t number, unsigned bits)
    {
        if (m_sources.size() < cMostSources || m_sources.count(source) != 0)
            m_sources[source].add(number, bits);
    }
    static unsigned sourceOf(std::uint8_t sac, std::uint8_t sic) { return 1u + (unsigned{sac} << 8 | sic); }
    void onDamagedVideo(const tCat240Video& video) override { onVideo(video); }  // its number did come
    void onVideo(const tCat240Video& video) override
    {
        addNumber(sourceOf(video.sac, video.sic), video.sequence, cStandardBits);
    }
    void onSummary(const tCat240Summary& summary) override
    {
        const auto source = m_sources.find(sourceOf(summary.sac, summary.sic));
        if (source != m_sources.end())
            source->second.addUnnumbered();
    }

    std::map<unsigned, tWireLoss> m_sources;
    std::uint64_t m_before = 0;  // missing when it was started anew
};

bool mayHoldSpokes(tReadWriteType kind)
{
    return kind == eImageStream || kind == eOriginalImage || kind == eOtherType;
}
}  // namespace

class tMissingMessages::tPrivate
{
public:
    void add(const tRadarMsgPackage& package, std::string_view message)
    {
        const tReadWriteType kind = package.msgInfo.rwType;
        const std::uint32_t ip = package.udpAddr;
        const std::uint16_t port = package.udpPort;
        if (!mayHoldSpokes(kind))
            return;
        const auto known = std::find_if(streams.begin(), streams.end(), [&](const tStream& one) {
            return one.ip == ip && one.port == port && one.kind == kind;
        });
        if (known != streams.end())
            return known->numbers.add(layouts, message);
        if (streams.size() >= cMostStreams)
            return;
        streams.push_back({ip, port, kind, tNumbers(tStreamKey::of(kind, ip, port))});
        streams.back().numbers.add(layouts, message);
    }

    struct tStream
    {
        std::uint32_t ip;
        std::uint16_t port;
        tReadWriteType kind;
        tNumbers numbers;
    };
    tLayouts layouts;
    std::deque<tStream> streams;
};

tMissingMessages::tMissingMessages(std::vector<utils::tSpokeLayout> layouts) : d(std::make_unique<tPrivate>())
{
    d->layouts = std::move(layouts);
}

tMissingMessages::~tMissingMessages() = default;
tMissingMessages::tMissingMessages(tMissingMessages&&) noexcept = default;
tMissingMessages& tMissingMessages::operator=(tMissingMessages&&) noexcept = default;

void tMissingMessages::add(std::string_view segment)
{
    if (d->layouts.empty())
        return;
    if (const tRadarMsgPackage* const package = asWholePackage(segment.data(), segment.size()))
        d->add(*package, segment.substr(cPackageHeadSize, package->msgLen));
}

void tMissingMessages::startAnew()
{
    for (tPrivate::tStream& stream : d->streams)
        stream.numbers.startAnew();
}

tMissingCounts tMissingMessages::missing() const
{
    tMissingCounts missing;
    for (const tPrivate::tStream& stream : d->streams)
        if (stream.numbers.areThere())
            missing[stream.numbers.key] = stream.numbers.missing();
    return missing;
}

std::optional<std::uint64_t> total(const tMissingCounts& missing)
{
    if (missing.empty())
        return std::nullopt;
    return std::accumulate(missing.begin(), missing.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const auto& stream) { return sum + stream.second; });
}

void setMissing(tSheet& sheet, const tMissingCounts& missing)
{
    sheet.losses.missingOnWire = total(missing);
    for (const auto& [key, count] : missing)
    {
        const auto known = std::find_if(sheet.streams.begin(), sheet.streams.end(),
                                        [&, wanted = &key](const tSheetStream& row) { return row.key == *wanted; });
        tSheetStream& row = known != sheet.streams.end() ? *known : sheet.streams.emplace_back();
        row.key = key;
        row.missingOnWire = count;
    }
}

std::vector<utils::tSpokeLayout> spokeLayoutsOf(const tSheet& sheet)
{
    std::vector<utils::tSpokeLayout> layouts;
    std::string error;
    if (!sheet.spokeLayout.empty())
        utils::parseSpokeLayouts(sheet.spokeLayout, layouts, error);
    return layouts;
}
}  // namespace recordings
