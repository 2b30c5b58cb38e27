#include <cmath>
#include <nlohmann/json.hpp>

#include "KestovaRecordings/recordingcounts.h"
#include "KestovaRecordings/verify.h"
#include "bindings/c/guard.h"
#include "bindings/c/quiet.h"
#include "bindings/c/source.h"
#include "sessions/report/infojson.h"
#include "sessions/report/places.h"
#include "sessions/report/verifyjson.h"

namespace
{
std::atomic<unsigned> s_verifyCancels{0};

char* jsonText(const session::tJson& json)
{
    return binding::copyOf(json.dump(-1, ' ', false, session::tJson::error_handler_t::replace));
}

recordings::tRecordingCounts countsOf(const binding::tSource& source)
{
    recordings::tRecordingCounts none;
    none.complete = true;
    if (source.isLive())
        return none;
    return recordings::countRecordings({source.path()}, {}, [&](const auto&) { return !source.stop->requested(); });
}
}  // namespace

kestova_result kestova_open(const char* source, const char* options, kestova_recording** out)
{
    return binding::guarded([&] {
        binding::require(source, "source");
        binding::require(out, "out");
        *out = new kestova_recording{std::make_shared<binding::tSource>(source, options)};
        return KESTOVA_OK;
    });
}

void kestova_close(kestova_recording* recording)
{
    delete recording;
}

void kestova_cancel(kestova_recording* recording)
{
    if (recording != nullptr)
        recording->source->stop->request();
    else
        ++s_verifyCancels;
}

kestova_result kestova_info(kestova_recording* recording, char** json)
{
    return binding::guarded([&] {
        binding::require(recording, "recording");
        binding::require(json, "json");
        const recordings::tRecordingCounts counts = countsOf(*recording->source);
        if (!counts.complete)
            return KESTOVA_CANCELLED;
        *json = jsonText(session::infoJson({recording->source->path()}, counts, false));
        return KESTOVA_OK;
    });
}

kestova_result kestova_verify(const char* path, int quick, char** json)
{
    return binding::guarded([&] {
        binding::require(path, "path");
        binding::require(json, "json");
        binding::silenceConsole();
        const unsigned cancels = s_verifyCancels;
        if (recordings::findAllRecordings({path}, binding::cSuffix).files.empty())
            throw binding::tError(KESTOVA_NOT_FOUND, std::string(path) + ": there are no data files");
        recordings::tVerifyOptions options;
        options.quick = quick != 0;
        const auto verified =
            recordings::verifyRecordings({path}, options, [&](const auto&) { return cancels == s_verifyCancels; });
        if (!verified.complete)
            return KESTOVA_CANCELLED;
        *json = jsonText(session::verifyJson({path}, options.quick, verified));
        return KESTOVA_OK;
    });
}

kestova_result kestova_place(kestova_recording* recording, const char* place, int64_t* ms)
{
    return binding::guarded([&] {
        binding::require(recording, "recording");
        binding::require(place, "place");
        binding::require(ms, "ms");
        const binding::tSource& source = *recording->source;
        const double time = session::parseMoment(place).resolve(source.firstMs(), source.lastMs());
        *ms = static_cast<int64_t>(std::llround(time));
        return KESTOVA_OK;
    });
}
