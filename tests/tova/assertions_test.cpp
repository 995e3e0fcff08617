// One death for each kind of assertion of the layer, with its exact words.
#include "analytics.h"
#include "lumo/common.h"
#include "lumo/strings.h"
#include "lumo/tova/own/internal.h"
#include "lumo/tova/tova-web.h"
#include "lumo/tova/tova.h"
#include "support/death.h"

namespace {

// A record as it is before its create operation, and one after.
template <class Record>
Record* unstamped()
{
    static Record record;
    return &record;
}

template <class Record, class... Arguments>
Record* made(void (*create)(Record*, Arguments...), Arguments... arguments)
{
    static Record record;
    create(&record, arguments...);
    return &record;
}

char small[4];
wchar_t wide[3];
const tova_time strange = {2010, 13, 7, 1, 0, 0, 0, 0, 0, 0, ""};
const tova_time monthless = {2010, 13, 6, 1, 0, 0, 0, 0, 0, 0, ""};

void idle(void*) {}

// This thread in a record that counts as started.
tova_thread* started()
{
    tova_thread* t = made(tova_thread_create);
    t->_target = idle;
    t->_handle = pthread_self();
    return t;
}

void lock_destroyed()
{
    tova_mutex* m = made(tova_mutex_create);
    tova_mutex_destroy(m);
    tova_mutex_lock(m);
}

void open_twice()
{
    tova_file* f = made(tova_file_init);
    for (int times = 0; times < 2; ++times)
        tova_file_open(f, "/dev/null", tova_file_read_only);
}

const struct
{
    const char *file, *text;
    void (*action)();
} misuses[] = {
    // A null record, or one without its stamp: each source calls its record by another name.
    {"mutex", "m", [] { tova_mutex_lock(nullptr); }},
    {"mutex", "m->_version == tova_version", lock_destroyed},
    {"event", "e->_version == tova_version", [] { tova_event_reset(unstamped<tova_event>()); }},
    {"semaphore", "s->_version == tova_version", [] { tova_semaphore_set(unstamped<tova_semaphore>()); }},
    {"global_event", "ge->_version == tova_version", [] { tova_global_event_set(unstamped<tova_global_event>()); }},
    {"thread", "t->_version == tova_version", [] { tova_thread_id_get(unstamped<tova_thread>()); }},
    {"string", "s->_version == tova_version", [] { tova_string_get(unstamped<tova_string>()); }},
    {"file", "f->_version == tova_version", [] { tova_file_seek_end(unstamped<tova_file>()); }},
    {"security", "s->_version == tova_version", [] { tova_security_get(unstamped<tova_security>()); }},
    {"tova-web", "h->_version == tova_version", [] { tova_http_close(unstamped<tova_http>()); }},
    {"tova-web", "r->_version == tova_version",
     [] { tova_http_request(made(tova_http_init), unstamped<tova_http_response>(), 0); }},
// Arguments and states that a call does not allow.
#if !defined(__SANITIZE_THREAD__) // which reports an unlock by another than the holder before the library can
    {"mutex", "false", [] { tova_mutex_unlock(made(tova_mutex_create)); }},
#endif
    {"semaphore", "value >= 0 && max > 0 && value <= max", [] { made(tova_semaphore_create, 2, 1); }},
    {"global_event", "strchr(name, '/') == NULL", [] { tova_global_event_exists("a/b"); }},
    {"global_event", "false", [] { tova_global_event_exists(std::string(1023, 'n').c_str()); }},
    {"thread", "false", [] { tova_thread_start(started(), idle, nullptr); }},
    {"thread", "false", [] { tova_thread_join(started()); }}, // by itself
    {"clock", "g_resolution", [] { tova_time_ms(g_resolution = 0); }},
    {"clock", "t->week_day < 7", [] { tova_time_string(&strange, tova_time_form_header, small, 4); }},
    {"clock", "t->month >= 1 && t->month <= 12", [] { tova_time_string(&monthless, 3, small, 4); }},
    {"clock", "false", [] { tova_time_string(&strange, 4, small, 4); }},
    {"text", "false", [] { tova_strcpy(small, 3, "abc"); }},
    {"utf8", "false", [] { tova_utf8_to_wide(wide, 3, "abc"); }},
    {"utf8", "!is_cut_off(src)", [] { tova_utf8_to_wide_length("a\xE2\x82"); }},
    {"file", "f->_file == INVALID_FILE", open_twice},
    {"file", "false", [] { tova_file_find_first_pattern(unstamped<tova_file_find>(), "/", "*.txt"); }},
    {"directory", "false", [] { tova_directory_get(5, small, sizeof small); }},
    {"security", "false", [] { tova_security_set(made(tova_security_init), 4, 1); }},
};

// A string that cannot grow.
struct rigid
{
    void resize(std::size_t) {}
    std::size_t capacity() const { return 0; }
    wchar_t* data() { return wide; }
};

// Crash reports are compared by file and line, so these keep their numbers wherever the line itself moves.
const struct
{
    const char *file, *text;
    void (*action)();
} numbered[] = {
    {"inc/lumo/common.h:119", "base >= 2 && base <= 16", [] { lumo::write(1LL, 17, 1, '0'); }},
    {"inc/lumo/common.h:120", "width >= 1", [] { lumo::write(1, 10, 0, '0'); }},
    {"inc/lumo/strings.h:177", "utf16.capacity() >= size-1", [] { lumo::decoded<rigid>("ab", tova_utf8_to_wide); }},
    {"inc/lumo/strings.h:182", "false",
     [] { lumo::decoded<rigid>("ab", [](wchar_t*, unsigned, const char*) { return 0; }); }},
    {"sdk/src/Analytics.cpp:190", "buffer", [] { analytics_property_get(nullptr, "tz", nullptr, 0); }},
};

} // namespace

TEST(Assertion, NamesFileLineExpression)
{
    for (const auto& [file, text, action] : misuses)
        EXPECT_ASSERTION(action(), std::string("inc/lumo/tova/") + file + ".cpp", text);
    for (const auto& [file, text, action] : numbered)
        EXPECT_ASSERTION(action(), file, text);
}
