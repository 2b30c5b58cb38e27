// tLostJoins: the stretches of time in which groups were not joined, as the state of a recorder shows them.
//
// Threads  one at a time. Time is passed in.
#ifndef KESTOVA_SESSIONS_RECORD_LOSTJOINS_H
#define KESTOVA_SESSIONS_RECORD_LOSTJOINS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "KestovaRecordings/sheet.h"
#include "sessions/record/recorder.h"

namespace session
{
class tLostJoins
{
public:
    // The state before this one, or the start, is where a loss has begun that this one shows. Groups that were joined
    // anew on another address were lost in between.
    void update(const tRecorderState& state, std::uint64_t nowMs);
    // Returns the losses since the file began; those that last end now.
    std::vector<recordings::tLostJoin> ofFile(std::uint64_t nowMs) const;
    void nextFile(std::uint64_t nowMs);  // what lasts goes on in it

private:
    void add(const std::string& address, std::uint64_t fromMs, std::uint64_t toMs);

    std::vector<recordings::tLostJoin> m_lost;  // of this file, ended
    std::map<std::string, std::uint64_t> m_lasting;
    std::uint64_t m_updatedMs = 0;  // 0: not yet
    unsigned int m_addressReports = 0;
};
}  // namespace session

#endif
