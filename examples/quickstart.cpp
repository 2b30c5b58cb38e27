// Records two segments into a data file and plays it back. README shows the body of this file.
#include <future>
#include <iostream>

#include "KestovaStorage/datastorageio.h"

// [readme]
struct tPrinter : storage::iDataReadReplayObserver
{
    std::promise<void> ended;
    void UpdateReplayStatus(uint8_t status) override
    {
        if (status == storage::eReplayEnded)
            ended.set_value();
    }
    void UpdateDataTimeSpan(uint64_t, uint64_t) override {}
    void UpdateReplayData(uint64_t timeMs, double, const char* data, unsigned int len, std::string) override
    {
        std::cout << timeMs << " ms: " << std::string(data, len) << '\n';
    }
};

int main()
{
    tPrinter printer;
    storage::tDataStorageIO io("recordings/", ".data");
    if (!io.CreateNewWritingFile(0, "quickstart", false))  // Data_<number>_<date>/0000_<time>_quickstart.data
        return 1;
    const std::string path = io.GetCurrentWriteDataFileName();
    io.WriteData("hello", 5, 1715934600000);  // time stamps in ms since the epoch; 0 would be now
    io.WriteData("radar", 5, 1715934600250);
    io.WaitWriteIdle(1000);
    io.FinishWrite();
    io.OpenReadDataFileorFolder(path, &printer);  // plays on a thread of its own, at the recorded pace
    printer.ended.get_future().wait();
    io.CloseReadingFile();
}
// [readme]
