// The token: where it comes from, how it is compared, and who has guessed too often.
#ifndef KESTOVA_SERVER_TOKEN_H
#define KESTOVA_SERVER_TOKEN_H

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace server
{
// Returns the first line of a file. Throws recordings::tFailure if it cannot be read, others than its owner can read
// it, or the line is not of 16 to 256 visible characters of ASCII.
std::string readToken(const std::string& file);

// Compares in a time that does not depend on where two texts of one length differ.
bool isEqual(std::string_view a, std::string_view b);

// Returns the text that the subprotocol of a page carries; nothing for what is no base64url.
std::string fromBase64Url(std::string_view text);

// Any thread.
class tWrongTokens
{
public:
    using tTime = std::chrono::steady_clock::time_point;

    bool isBlocked(const std::string& peer, tTime now);  // ten in the minute before
    void add(const std::string& peer, tTime now);

private:
    void forgetOld(tTime now);

    std::mutex m_mutex;
    std::map<std::string, std::deque<tTime>> m_times;  // guarded by m_mutex; of the last minute, at most ten each
};
}  // namespace server

#endif
