// tFindingList: what is wrong with a file, gathered while it is read.
#ifndef KESTOVA_RECORDINGS_FINDINGLIST_H
#define KESTOVA_RECORDINGS_FINDINGLIST_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "KestovaRecordings/verify.h"

namespace recordings
{
// What findings have in common but their words: which record, where and when.
struct tFindingPlace
{
    std::uint64_t record;
    std::uint64_t offset;
    std::uint64_t timeMs;
    std::uint64_t last = 0;  // of several records that follow each other; below `record` for one
};

// Records that follow each other and have the same finding are one entry. Memory is bounded: entries beyond
// cMostFindings are counted. One thread at a time.
class tFindingList
{
public:
    static constexpr std::size_t cMostFindings = 1000;

    void add(const char* kind, const tFindingPlace& place, const std::string& detail, bool damage = true);
    // Of the file as a whole, or of a place in it.
    void addOfFile(const char* kind, const std::string& detail, bool damage = true);
    void addAt(const char* kind, std::uint64_t offset, const std::string& detail, bool damage = true);
    void append(const tFindingList& later);

    bool hasDamage() const { return m_damages != 0; }
    bool hasDamage(const std::string& kind) const;
    bool hasDamageBeside(const std::string& kind) const;
    // Moves them out, in order: those of the file as a whole, then by record. Sets `more` to those beyond them.
    std::vector<tFinding> take(std::uint64_t& more);

private:
    struct tEntry
    {
        tFinding finding;
        std::uint64_t last;  // record
    };
    void add(tEntry entry);

    std::vector<tEntry> m_entries;
    std::uint64_t m_more = 0, m_damages = 0;
    std::vector<std::string> m_damagingKinds;  // each once
};
}  // namespace recordings

#endif
