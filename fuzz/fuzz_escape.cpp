// EscapeParams: against a byte-exact model, and decoded back by the library's own decoder.

#include "CurlHandles.h"
#include "fuzz.h"
#include "lumo/percent.h"
#include "lumo/tova/tova-web.h"
#include "model.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    const std::string value(reinterpret_cast<const char*>(bytes), size);
    const std::string escaped = AnalyticsSDK::EscapeParams(nullptr, value);
    fuzz::same("EscapeParams", model::percent(value), escaped);
    fuzz::same("the size told beforehand", static_cast<long long>(escaped.size()),
               static_cast<long long>(lumo::percent_encoded_size(value)));

    std::string decoded(escaped.size() + 1, 'x');
    const int32_t count = tova_uri_decode(decoded.data(), static_cast<unsigned>(decoded.size()), escaped.c_str(),
                                          static_cast<unsigned>(escaped.size()));
    fuzz::same("decoded back", value, std::string_view(decoded).substr(0, static_cast<size_t>(count)));
    return 0;
}
