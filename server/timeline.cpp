#include "server/timeline.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>

namespace server
{
using namespace recordings;

namespace
{
constexpr std::size_t cMostFiles = 2000;
constexpr std::size_t cMostGaps = 10'000;

struct tColumn
{
    double sum = 0, coverMs = 0;
    float min = 0, max = 0;
};

class tTimeline
{
public:
    tTimeline(const tTimelineSpan& span, tFactsCache& cache)
        : m_span(span), m_widthMs(static_cast<double>(span.toMs - span.fromMs) / static_cast<double>(span.columns)),
          m_cover(span.columns), m_cache(cache)
    {}

    void add(const tTimelineRecording& recording)
    {
        m_last.clear();
        for (std::size_t n = 0; n < recording.files.size(); ++n)
            if (recording.files[n]->firstMs != 0)
                addFile(recording.id, n, *recording.files[n]);
    }

    tJson json()
    {
        tJson streams = tJson::array();
        for (const auto& [key, columns] : m_streams)
            streams.push_back(streamJson(key, columns));
        tJson files = tJson::array();
        const bool isMany = m_files > cMostFiles;
        for (tJson& row : m_fileRows)
            if (!isMany)
                files.push_back(std::move(row));
        for (auto& [id, row] : m_recordingRows)
            if (isMany)
                files.push_back(std::move(row));
        return {{"from_ms", m_span.fromMs},      {"to_ms", m_span.toMs},      {"columns", m_span.columns},
                {"streams", std::move(streams)}, {"gaps", std::move(m_gaps)}, {"losses", std::move(m_losses)},
                {"notes", std::move(m_notes)},   {"files", std::move(files)}, {"kept", std::move(m_kept)}};
    }

private:
    using tColumns = std::vector<tColumn>;

    bool overlaps(std::uint64_t fromMs, std::uint64_t toMs) const
    {
        return fromMs < m_span.toMs && toMs >= m_span.fromMs;
    }

    void addFile(const std::string& id, std::size_t n, const tFileFacts& file)
    {
        for (const tStreamFacts& stream : file.streams)
            addGaps(stream);
        if (!overlaps(file.firstMs, file.lastMs))
            return;
        addPiece({file.firstMs, file.lastMs + 1, 0, 0, 0}, m_cover);
        const bool isFine = static_cast<double>(file.lastMs - file.firstMs) > 8 * m_widthMs;
        const auto fine = isFine ? m_cache.fine(file) : nullptr;
        for (const tStreamFacts& stream : file.streams)
        {
            tColumns& columns = m_streams.try_emplace(stream.key, m_span.columns).first->second;
            const auto known = fine ? fine->find(stream.key) : tFineRates::const_iterator();
            for (const tRatePiece& piece : fine&& known != fine->end() ? known->second : stream.pieces)
                addPiece(piece, columns);
        }
        addRows(id, n, file);
    }

    void addPiece(const tRatePiece& piece, tColumns& columns) const
    {
        if (!overlaps(piece.fromMs, piece.toMs - 1))
            return;
        const double from = (static_cast<double>(piece.fromMs) - static_cast<double>(m_span.fromMs)) / m_widthMs;
        const double to = (static_cast<double>(piece.toMs) - static_cast<double>(m_span.fromMs)) / m_widthMs;
        const auto count = static_cast<double>(columns.size());
        for (auto i = static_cast<std::size_t>(std::clamp(std::floor(from), 0.0, count));
             i < columns.size() && static_cast<double>(i) < to; ++i)
        {
            tColumn& column = columns[i];
            const double left = std::max(from, static_cast<double>(i));
            const double cover = (std::min(to, static_cast<double>(i + 1)) - left) * m_widthMs;
            if (cover <= 0)
                continue;
            column.min = column.coverMs == 0 ? piece.min : std::min(column.min, piece.min);
            column.max = std::max(column.max, piece.max);
            column.sum += piece.mean * cover;
            column.coverMs += cover;
        }
    }

    // Also those between two files of a recording.
    void addGaps(const tStreamFacts& stream)
    {
        for (const tGap& gap : stream.gaps)
            addGap(stream.key, gap);
        const auto before = m_last.find(stream.key);
        if (before != m_last.end() && stream.firstMs >= before->second + cSheetGapMs)
            addGap(stream.key, {before->second, stream.firstMs});
        m_last[stream.key] = stream.lastMs;
    }

    void addGap(const tStreamKey& key, const tGap& gap)
    {
        if (overlaps(gap.fromMs, gap.toMs) && m_gaps.size() < cMostGaps)
            m_gaps.push_back(
                {{"stream", key.name()}, {"address", key.address()}, {"from_ms", gap.fromMs}, {"to_ms", gap.toMs}});
    }

    void addLoss(const char* layer, std::uint64_t fromMs, std::uint64_t toMs, std::uint64_t count)
    {
        if (count != 0)
            m_losses.push_back({{"layer", layer}, {"from_ms", fromMs}, {"to_ms", toMs}, {"count", count}});
    }

    void addRows(const std::string& id, std::size_t n, const tFileFacts& file)
    {
        ++m_files;
        if (m_files <= cMostFiles)
            m_fileRows.push_back({{"recording", id},
                                  {"n", n},
                                  {"name", file.name},
                                  {"first_ms", file.firstMs},
                                  {"last_ms", file.lastMs}});
        tJson& row = m_recordingRows[id];
        if (row.is_null())
            row = {{"recording", id}, {"first_ms", file.firstMs}, {"last_ms", file.lastMs}};
        row["last_ms"] = std::max(row["last_ms"].get<std::uint64_t>(), file.lastMs);
        addLoss("kernel", file.firstMs, file.lastMs, file.losses.kernelDropped);
        addLoss("queue", file.firstMs, file.lastMs, file.losses.queueLost);
        addLoss("disk", file.firstMs, file.lastMs, file.losses.diskLost);
        addLoss("wire", file.firstMs, file.lastMs, file.losses.missingOnWire.value_or(0));
        for (const tLostJoin& join : file.losses.joinsLost)
            addLoss("join", join.fromMs, join.toMs, 1);
        for (const tNote& note : file.notes)
            m_notes.push_back({{"time_ms", note.timeMs}, {"text", note.text}, {"recording", id}});
        if (file.kept)
            m_kept.push_back({{"from_ms", file.firstMs}, {"to_ms", file.lastMs}});
    }

    tJson streamJson(const tStreamKey& key, const tColumns& columns) const
    {
        tJson::array_t min, mean, max;
        const auto rounded = [](double value) { return std::round(value * 100) / 100; };
        for (std::size_t i = 0; i < columns.size(); ++i)
        {
            const tColumn& column = columns[i];
            const bool isSilent = column.coverMs == 0;
            if (isSilent && m_cover[i].coverMs == 0)
            {
                min.emplace_back();
                mean.emplace_back();
                max.emplace_back();
                continue;
            }
            min.emplace_back(isSilent ? 0.0 : rounded(column.min));
            mean.emplace_back(isSilent ? 0.0 : rounded(column.sum / column.coverMs));
            max.emplace_back(rounded(column.max));
        }
        return {{"stream", key.name()},
                {"address", key.address()},
                {"min", std::move(min)},
                {"mean", std::move(mean)},
                {"max", std::move(max)}};
    }

    const tTimelineSpan m_span;
    const double m_widthMs;
    tColumns m_cover;  // of any file
    tFactsCache& m_cache;
    std::map<tStreamKey, tColumns> m_streams;
    std::map<tStreamKey, std::uint64_t> m_last;  // of the present recording
    std::size_t m_files = 0;
    std::vector<tJson> m_fileRows;
    std::map<std::string, tJson> m_recordingRows;
    tJson m_gaps = tJson::array(), m_losses = tJson::array(), m_notes = tJson::array(), m_kept = tJson::array();
};
}  // namespace

tJson timelineJson(const std::vector<tTimelineRecording>& recordings, const tTimelineSpan& span, tFactsCache& cache)
{
    tTimeline timeline(span, cache);
    for (const tTimelineRecording& recording : recordings)
        timeline.add(recording);
    return timeline.json();
}
}  // namespace server
