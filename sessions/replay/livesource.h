// tLiveSource: what a replay plays after its span while the recording is still being made.
#ifndef KESTOVA_SESSIONS_REPLAY_LIVESOURCE_H
#define KESTOVA_SESSIONS_REPLAY_LIVESOURCE_H

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "KestovaRecordings/livecursor.h"
#include "KestovaStorage/replaysource.h"

namespace session
{
// Begins with the record behind those that were opened: neither a gap nor a repetition. One thread at a time, damaged()
// any.
class tLiveSource : public storage::iReplaySource
{
public:
    tLiveSource(const std::vector<std::string>& files, const std::string& suffix) : m_cursor(files, suffix) {}

    const std::string& followed() const { return m_cursor.file(); }
    std::uint64_t damaged() const { return m_damaged; }  // records that could not be read

private:
    void Begin(const storage::tReplayedFile* files, size_t count) override;
    bool Next(storage::tReplaySourceSegment& segment) override;
    bool Over() override { return m_cursor.over(); }

    recordings::tLiveCursor m_cursor;
    const std::string m_followed = m_cursor.file();
    std::atomic<std::uint64_t> m_damaged{0};
};
}  // namespace session

#endif
