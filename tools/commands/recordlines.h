// tRecordLines: what happens to a recording, as lines for the user.
#ifndef KESTOVA_TOOLS_COMMANDS_RECORDLINES_H
#define KESTOVA_TOOLS_COMMANDS_RECORDLINES_H

#include <string>
#include <vector>

#include "sessions/record/recordsession.h"

namespace tool
{
class tConsole;

class tRecordLines : public session::iRecordObserver
{
public:
    tRecordLines(tConsole& console, const session::tRecordOptions& options);

    void onStart(const std::vector<session::tInterface>& interfaces, const std::string& file);
    void onNextFile(const std::string& file) override;
    void onAddress(const session::tInterface& interface, std::size_t notJoined) override;
    void onSilence(const session::tSilence& silence) override;
    void onDiskLeft(const session::tDiskLeft& left) override;
    void onReclaimed(const session::tReclaimed& file) override;
    void onSheetProblem(const std::string& problem) override;

private:
    void warn(const std::string& text);

    tConsole& m_console;
    const std::string m_root;
    const bool m_reclaims;
    std::string m_interfaces;  // as text: "eth0 (192.168.1.20)"
};
}  // namespace tool

#endif
