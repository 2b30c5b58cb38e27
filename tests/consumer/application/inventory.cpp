// An application in C++17: lists the data files below the folder given and counts what is in them.
#include <cstdio>
#include <string>

#include <KestovaRecordings/archive.h>
#include <KestovaRecordings/streamhistory.h>

int main(int argc, char** argv)
{
    recordings::tStreamHistory stream;
    for (const std::string& path : recordings::findRecordings(argc == 2 ? argv[1] : ".", ".data"))
    {
        storage::tDataFile file;
        std::string segment;
        if (!file.open(path))
            return 1;
        for (std::size_t i = 0; i < file.recordCount(); ++i)
            if (file.read(i, segment))
                stream.add(file.record(i).timeMs, segment, 1000, false);
    }
    std::printf("%llu messages\n", static_cast<unsigned long long>(stream.messages()));
    return 0;
}
