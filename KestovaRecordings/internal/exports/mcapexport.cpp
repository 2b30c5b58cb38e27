// mcapExporter: the topics of a recording in an MCAP file.
#include <optional>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/exportfolder.h"
#include "KestovaRecordings/internal/exports/messagetopics.h"
#include "KestovaRecordings/internal/exports/owntopics.h"
#include "KestovaRecordings/internal/exports/radarnames.h"
#include "KestovaRecordings/internal/exports/radartopics.h"
#include "KestovaRecordings/internal/exports/rosbagmetadata.h"

namespace recordings
{
namespace
{
// The folder of a bag, if one is wanted, and the name of its file.
class tBag
{
public:
    explicit tBag(const std::string& path) : m_path(path)
    {
        if (!path.ends_with('/'))
            return;
        m_folder.emplace(path);
        m_name = m_folder->path().substr(m_folder->path().rfind('/') + 1) + "_0.mcap";
    }
    std::string file() const { return m_folder ? m_folder->fileName(m_name) : m_path; }
    void finish(const mcap::tMcapWriter& written)
    {
        if (!m_folder)
            return;
        m_folder->put("metadata.yaml", rosBagMetadata(written, m_name));
        m_folder->commit();
    }

private:
    const std::string m_path;
    std::optional<tExportFolder> m_folder;
    std::string m_name;
};

class tMcapExporter final : public iExporter, private tDecodedSink
{
public:
    explicit tMcapExporter(const tMcapOptions& options)
        : m_options(options), m_bag(options.path), m_file(m_bag.file(), "ros2", options.compress), m_raw(m_file),
          m_sentences(m_file), m_own(m_file), m_targets(m_file), m_names(options.files),
          m_streams(options.topics.needSpokes() ? options.layouts : tMcapOptions().layouts, *this)
    {}

    bool take(const tExportedPackage& package) override
    {
        if (m_options.topics.raw)
            m_raw.write(package);
        if (m_options.topics.needMeaning())
            m_streams.read(package);
        return true;
    }
    void finish() override
    {
        m_streams.finish();
        for (auto& [stream, radar] : m_radars)
            radar.finish(m_navigation.own());
        if (m_options.topics.targets)
            m_targets.finish(m_navigation);
        if (m_file.messages() == 0)
            throw tFailure(m_options.path + " was not written: the recording has nothing for its topics");
        m_file.finish();
        m_bag.finish(m_file);
    }
    std::vector<tExportedPart> written() const override
    {
        std::vector<tExportedPart> topics;
        for (const auto& channel : m_file.channels())
            topics.push_back({channel.topic, channel.messages});
        return topics;
    }

private:
    void onLine(std::string_view line, bool, const tDecodedPlace& place) override
    {
        if (m_options.topics.sentences)
            m_sentences.write(line, place);
    }
    void onSentence(const tSentence& sentence, const tDecodedPlace& place) override
    {
        m_navigation.add(sentence, place.timeMs);
        if (m_options.topics.own)
            m_own.write(sentence, place);
        if (m_options.topics.targets)
            m_targets.write(sentence, place, m_navigation);
    }
    void onSpoke(const tSpoke& spoke, const tDecodedPlace& place) override
    {
        auto radar = m_radars.find(place.stream);
        if (radar == m_radars.end())
            radar = m_radars.try_emplace(place.stream, m_file, m_names.nameFor(place.stream), m_options).first;
        radar->second.add(spoke, place, m_navigation.own());
    }

    const tMcapOptions m_options;
    tBag m_bag;
    mcap::tMcapWriter m_file;
    tRawTopics m_raw;
    tSentenceTopic m_sentences;
    tOwnTopics m_own;
    tTargetsTopic m_targets;
    tNavigation m_navigation;
    tRadarNames m_names;
    std::map<tStreamKey, tRadarTopics> m_radars;
    tDecodedStreams m_streams;
};
}  // namespace

tExporter mcapExporter(const tMcapOptions& options)
{
    return std::make_unique<tMcapExporter>(options);
}
}  // namespace recordings
