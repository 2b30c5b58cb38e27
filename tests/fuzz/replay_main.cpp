// Replays a corpus through a fuzz target: every argument is a folder of inputs. Every input runs as it is, and damaged:
// with one byte flipped at a time, and cut.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "support/filebytes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace
{
constexpr std::size_t cMostPlaces = 64;  // of an input that are damaged

void run(const std::string& bytes)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

void replay(std::string bytes)
{
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
        for (const auto& input : std::filesystem::directory_iterator(argv[i]))
        {
            replay(contentsOf(input.path()));
            ++replayed;
        }
    std::printf("replayed %zu inputs\n", replayed);
    return replayed == 0 ? 1 : 0;  // an empty corpus tests nothing
}
