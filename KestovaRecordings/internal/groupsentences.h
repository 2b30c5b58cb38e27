// tGroupSentences: the sentences in the packages of a recording, group by group.
#ifndef KESTOVA_RECORDINGS_INTERNAL_GROUPSENTENCES_H
#define KESTOVA_RECORDINGS_INTERNAL_GROUPSENTENCES_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/sentencereader.h"

namespace recordings
{
// The fragments of an AIS message come on one group: those of two receivers may bear the same numbers. One thread at a
// time.
class tGroupSentences
{
public:
    void read(std::uint64_t timeMs, const tPackageContents& package, iSentenceSink& sink)
    {
        const tGroup group{package.ip, package.port};
        const auto known = m_readers.find(group);
        tSentenceReader& reader = known != m_readers.end()         ? known->second
                                  : m_readers.size() < cMostGroups ? m_readers[group]
                                                                   : m_others;
        reader.read(package.payload, timeMs, sink);
    }

private:
    using tGroup = std::pair<std::uint32_t, std::uint16_t>;  // address and port
    static constexpr std::size_t cMostGroups = 256;          // that have a reader of their own

    std::map<tGroup, tSentenceReader> m_readers;
    tSentenceReader m_others;
};
}  // namespace recordings

#endif
