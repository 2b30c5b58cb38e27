// Own ship and targets as topics.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_OWNTOPICS_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_OWNTOPICS_H

#include <optional>
#include <string>

#include "KestovaRecordings/internal/exports/messagetopics.h"
#include "KestovaRecordings/navigation.h"

namespace recordings
{
// /own/fix and /own/heading: a message for each sentence that has the value.
class tOwnTopics
{
public:
    explicit tOwnTopics(mcap::tMcapWriter& file)
        : m_fix(file, "/own/fix", ros::eType::eNavSatFix),
          m_heading(file, "/own/heading", ros::eType::eQuaternionStamped)
    {}

    void write(const tSentence& sentence, const tDecodedPlace& place);

private:
    void writeFix(const tGeoPoint& point, const mcap::tTimes& times);
    void writeHeading(double headingDeg, const mcap::tTimes& times);

    tTopic m_fix, m_heading;
    mcap::tCdrWriter m_message;
};

// /targets: all that were heard lately as one GeoJSON text, once a second at most, if one of them has changed.
class tTargetsTopic
{
public:
    explicit tTargetsTopic(mcap::tMcapWriter& file) : m_topic(file, "/targets", ros::eType::eGeoJson) {}

    // `navigation` has the sentence already.
    void write(const tSentence& sentence, const tDecodedPlace& place, const tNavigation& navigation);
    void finish(const tNavigation& navigation);  // writes what has changed since

private:
    void writeAll(const tNavigation& navigation);

    tTopic m_topic;
    mcap::tCdrWriter m_message;
    std::optional<mcap::tTimes> m_changed;  // the times of the last change that is not written
    std::uint64_t m_lastNs = 0;             // when targets were written last
};
}  // namespace recordings

#endif
