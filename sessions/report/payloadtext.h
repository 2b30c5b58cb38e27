// Payloads as text.
#ifndef KESTOVA_SESSIONS_REPORT_PAYLOADTEXT_H
#define KESTOVA_SESSIONS_REPORT_PAYLOADTEXT_H

#include <string>
#include <string_view>

namespace session
{
// Returns whether a sentence is in the bytes: "$" or "!", five letters or digits, and a comma.
bool holdsSentence(std::string_view bytes);

// Returns the bytes on one line: \r, \n, \t, \\, and \xNN for everything else that is not ASCII. Zero bytes at the
// end, with which messages are filled up, are left out.
std::string escapedText(std::string_view bytes);
}  // namespace session

#endif
