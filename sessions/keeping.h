// tKeeping: sets in recordings whether anything may delete them.
#ifndef KESTOVA_SESSIONS_KEEPING_H
#define KESTOVA_SESSIONS_KEEPING_H

#include <cstddef>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"

namespace session
{
// One thread at a time.
class tKeeping
{
public:
    tKeeping(bool kept, const std::string& suffix) : m_kept(kept), m_suffix(suffix) {}

    // Sets the mark in every file, or in none if one of them fails: throws tFailure then.
    void mark(const recordings::tFoundFiles& found);

    std::size_t marked() const { return m_marked; }                        // files
    const std::vector<std::string>& changed() const { return m_changed; }  // of them, those that were otherwise

private:
    void markFile(const std::string& file);
    void takeBack();

    const bool m_kept;
    const std::string m_suffix;
    std::size_t m_marked = 0;
    std::vector<std::string> m_changed;
};
}  // namespace session

#endif
