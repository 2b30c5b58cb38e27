#include "KestovaRecordings/failure.h"

namespace recordings
{
// Out of line, so that the library exports the type information by which programs catch it.
tFailure::~tFailure() = default;
tPipeClosed::~tPipeClosed() = default;
}  // namespace recordings
