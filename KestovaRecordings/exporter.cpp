#include "KestovaRecordings/exporter.h"

namespace recordings
{
iExporter::~iExporter() = default;
}
