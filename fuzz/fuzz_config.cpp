// The configuration record filled with anything, terminators missing: sessions open and close, no byte beyond a field
// is read, and the event line holds what the fields say.

#include "analytics.h"
#include "fuzz.h"
#include "model.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace {

template <size_t Size>
std::string text(const char (&field)[Size])
{
    return {field, strnlen(field, Size)};
}

// Anything as a file's name, but in the scratch folder (the working folder) and nowhere else.
template <size_t Size>
void stay_here(char (&path)[Size])
{
    std::replace(path, path + Size, '/', '_');
}

bool is_a_file_name(const std::string& name)
{
    return !name.empty() && name.size() <= 255 && name != "." && name != "..";
}

void clean_up(const analytics_config& config)
{
    unlink(text(config.event_log_file).c_str());
    unlink(text(config.pid_file).c_str());
}

void check_files(const analytics_config& config, const std::string& id)
{
    const std::string log = text(config.event_log_file), pid = text(config.pid_file);
    if (!is_a_file_name(log) || log == pid)
        return;
    const std::string used = !id.empty() ? id : fuzz::read_file(pid);
    if (used.empty()) // an id that no file keeps is known to the library alone
        return;
    model::check_line({text(config.application_id), text(config.application_version), used}, "\"e\"",
                      "{ \"k\": \"v\" }", fuzz::read_file(log));
}

} // namespace

int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::require("the scratch folder to work in", chdir(fuzz::scratch().c_str()) == 0);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    // On the heap in its exact size, so that AddressSanitizer sees a read past the last field.
    const auto config = std::make_unique<analytics_config>();
    FuzzedDataProvider input(bytes, size);
    for (auto [field, room] : {std::pair<char*, size_t>{config->upload_url, sizeof config->upload_url},
                               {config->event_log_file, sizeof config->event_log_file},
                               {config->pid_file, sizeof config->pid_file},
                               {config->unique_id, sizeof config->unique_id},
                               {config->application_id, sizeof config->application_id},
                               {config->application_version, sizeof config->application_version},
                               {config->certificate_file, sizeof config->certificate_file}}) {
        const std::string value = input.ConsumeRandomLengthString(room);
        memset(field, input.ConsumeBool() ? 'x' : '\0', room);
        memcpy(field, value.data(), value.size());
    }
    stay_here(config->event_log_file);
    stay_here(config->pid_file);
    const std::string id = text(config->unique_id);

    analytics_session* session = analytics_initialize(config.get());
    fuzz::require("a session", session);
    fuzz::same("begin", 0, analytics_event_begin(session, "e"));
    fuzz::same("add", 0, analytics_name_string_add(session, "k", "v"));
    fuzz::same("end", 0, analytics_event_end(session));
    check_files(*config, id);
    analytics_shutdown(session);
    clean_up(*config);
    return 0;
}
