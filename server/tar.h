// tTarBody: the files of a folder as a tar archive (ustar).
#ifndef KESTOVA_SERVER_TAR_H
#define KESTOVA_SERVER_TAR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/descriptor.h"
#include "server/http.h"

namespace server
{
// Returns the head of a file's entry, 512 bytes. `name` has 100 bytes at most, as the form has it: longer ones are cut.
std::string tarHead(const std::string& name, std::uint64_t size, std::uint64_t seconds);

class tTarBody : public iBody
{
public:
    // The regular files in `folder`, in order of their names, below `name`. `keep` is held until the end.
    tTarBody(const std::string& folder, const std::string& name, std::shared_ptr<void> keep);

    bool next(std::string& chunk) override;
    std::uint64_t length() const { return m_length; }

private:
    struct tEntry
    {
        std::string path, head;
        std::uint64_t size;
    };
    std::vector<tEntry> m_entries;
    std::uint64_t m_length = 0;
    std::size_t m_at = 0;
    std::uint64_t m_sent = 0;  // of the present file
    tDescriptor m_file;
    bool m_ended = false;
    std::shared_ptr<void> m_keep;
};
}  // namespace server

#endif
