// Saves three messages of its own in the folder "messages/" and plays them back.
#include <future>
#include <iostream>
#include <string>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/radarsaverandreplayer.h"

namespace
{
class tObserver : public Kestova::iSaveReplayObserver
{
public:
    void UpdateState(Kestova::eSaveReplayState state) override { std::cout << "state " << state << '\n'; }

    void UpdateReplayData(double progress, int dataType, const char* data, int len) override  // on the replay thread
    {
        std::cout << dataType << ": " << std::string(data, static_cast<std::size_t>(len)) << '\n';
        if (progress == 1.0)
            last.set_value();
    }

    std::promise<void> last;
};
}  // namespace

int main()
{
    tObserver observer;
    Kestova::tRadarSaverAndReplayer recorder(&observer);

    const std::string folder = "messages/";
    storage::tDataStorageIO::MakePath(folder);
    if (!recorder.StartSaving(folder))
        return std::cerr << "cannot record in " << folder << '\n', 1;
    for (const std::string text : {"anchor up", "course 270", "speed 12"})
        recorder.SaveData(0x0102, text.data(), static_cast<int>(text.size()));
    recorder.EndSave();

    recorder.StartReplaying(folder);
    observer.last.get_future().wait();
    recorder.EndReplay();
}
