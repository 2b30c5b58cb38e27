#include "KestovaRecordings/failure.h"

namespace recordings
{
// Defined here, so that the library holds the one type record by which programs catch it.
tFailure::~tFailure() = default;
}  // namespace recordings
