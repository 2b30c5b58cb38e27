#include "KestovaRecordings/failure.h"

namespace recordings
{
// Here, so that the library holds the one type record by which every program catches it.
tFailure::~tFailure() = default;
}  // namespace recordings
