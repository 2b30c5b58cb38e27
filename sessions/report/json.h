// tJson: results as commands and bindings give them, members in the order of writing.
#ifndef KESTOVA_SESSIONS_REPORT_JSON_H
#define KESTOVA_SESSIONS_REPORT_JSON_H

#include <nlohmann/json_fwd.hpp>

namespace session
{
using tJson = nlohmann::ordered_json;
}

#endif
