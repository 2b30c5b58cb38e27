// What verifying and recovering found, as text and as JSON.
#ifndef KESTOVA_TOOLS_SHELL_FINDINGS_H
#define KESTOVA_TOOLS_SHELL_FINDINGS_H

#include <string>
#include <vector>

#include "KestovaRecordings/verify.h"
#include "sessions/report/verifyjson.h"

namespace tool
{
using session::findingsJson;
// Returns a line for each of the first ones, and one that counts the rest.
std::string findingsText(const std::vector<recordings::tFinding>& findings, std::uint64_t more);
// Shows how far verifying is.
std::string verifyingText(const recordings::tVerifyProgress& at);
}  // namespace tool

#endif
