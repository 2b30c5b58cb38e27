// tSentRecorder: records what a simulated radar sends, as a recorder that loses nothing would.
#ifndef KESTOVA_SESSIONS_SIMULATE_SENTRECORDER_H
#define KESTOVA_SESSIONS_SIMULATE_SENTRECORDER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/packagerecorder.h"
#include "KestovaStorage/recordedgroups.h"
#include "UdpSocket/netaddress.h"

namespace session
{
// One thread at a time.
class tSentRecorder
{
public:
    // Records into a new folder below `root`. Switches off the deletion of old data files for this process. Throws
    // tFailure if `root` is no folder or not writable, or no file can be created.
    tSentRecorder(const std::string& root, const RadarAddress& radar);

    // Records a datagram to one of the radar's groups with the present time.
    void add(const NetAddress& group, std::string_view message);
    // Waits until everything is in the files. Throws tFailure if something could not be written.
    void finish();
    const std::string& file() const { return m_file; }  // the first one

private:
    const std::vector<Kestova::tRecordedGroup> m_groups;
    const std::string m_root;
    std::string m_file;
    storage::tDataStorageIO m_storage;
    Kestova::tPackageRecorder m_recorder{m_storage};
};
}  // namespace session

#endif
