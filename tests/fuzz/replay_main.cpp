// Replays a corpus through a fuzz target: every argument is a file or a folder of files. Every input runs as it is, and
// damaged: with one byte flipped at a time, and cut.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace
{
constexpr std::size_t cMostPlaces = 64;  // of an input that are damaged

void run(const std::string& bytes)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

void replayFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    run(bytes);
    for (std::size_t place = 0; place < bytes.size(); place += bytes.size() / cMostPlaces + 1)
    {
        run(bytes.substr(0, place));
        for (const char flip : {'\x01', '\x80', '\xFF'})
        {
            const char whole = bytes[place];
            bytes[place] = static_cast<char>(whole ^ flip);
            run(bytes);
            bytes[place] = whole;
        }
    }
}
}  // namespace

int main(int argc, char** argv)
{
    std::size_t replayed = 0;
    for (int i = 1; i < argc; ++i)
    {
        if (!std::filesystem::is_directory(argv[i]))
        {
            replayFile(argv[i]);
            ++replayed;
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i]))
        {
            if (entry.is_regular_file())
            {
                replayFile(entry.path());
                ++replayed;
            }
        }
    }
    std::printf("replayed %zu inputs\n", replayed);
    return replayed == 0 ? 1 : 0;  // an empty corpus tests nothing
}
