// One death for each kind of assertion of the layer, with its exact words.
#include "lumo/tova/platform/internal.h"
#include "lumo/tova/tova-web.h"
#include "lumo/tova/tova.h"
#include "support/death.h"

namespace {

// A thread target that never runs: its record is made up.
void idle(void*) {}

struct Misuse
{
    const char* name;
    const char* file;
    const char* text;
    void (*action)();
};

// Names a case in lists, which would show its bytes otherwise.
void PrintTo(const Misuse& misuse, std::ostream* out)
{
    *out << misuse.text;
}

// An object of the layer as it is before its create operation.
template <class Record>
Record* unstamped()
{
    static Record record;
    return &record;
}

template <class Record>
Record* none()
{
    return nullptr;
}

tova_file* opened()
{
    static tova_file f;
    tova_file_init(&f);
    tova_file_open(&f, "/dev/null", tova_file_read_only);
    return &f;
}

tova_security* security()
{
    static tova_security s;
    tova_security_init(&s);
    return &s;
}

tova_thread* thread()
{
    static tova_thread t;
    tova_thread_create(&t);
    return &t;
}

char small[4];
tova_semaphore semaphore;
tova_global_event global_event;
const tova_time strange = {2010, 13, 7, 1, 0, 0, 0, 0, 0, 0, ""};
const tova_time monthless = {2010, 13, 6, 1, 0, 0, 0, 0, 0, 0, ""};

const Misuse misuses[] = {
    // A null record, an unstamped one: each noun has its own name for itself.
    {"MutexNull", "mutex", "m", [] { tova_mutex_lock(none<tova_mutex>()); }},
    {"MutexUnstamped", "mutex", "m->_version == tova_version", [] { tova_mutex_unlock(unstamped<tova_mutex>()); }},
    {"MutexDestroyed", "mutex", "m->_version == tova_version",
     [] {
         tova_mutex m;
         tova_mutex_create(&m);
         tova_mutex_destroy(&m);
         tova_mutex_lock(&m);
     }},
    {"MutexOfAnother", "mutex", "false",
     [] {
         tova_mutex m;
         tova_mutex_create(&m); // recursive: the system tells whose it is
         tova_mutex_unlock(&m);
     }},
    {"EventNull", "event", "e", [] { tova_event_set(none<tova_event>()); }},
    {"EventUnstamped", "event", "e->_version == tova_version",
     [] { tova_event_wait_time(unstamped<tova_event>(), 0); }},
    {"SemaphoreNull", "semaphore", "s", [] { tova_semaphore_wait(none<tova_semaphore>()); }},
    {"SemaphoreUnstamped", "semaphore", "s->_version == tova_version",
     [] { tova_semaphore_set(unstamped<tova_semaphore>()); }},
    {"SemaphoreAboveItsBound", "semaphore", "value >= 0 && max > 0 && value <= max",
     [] { tova_semaphore_create(&semaphore, 2, 1); }},
    {"SemaphoreNegative", "semaphore", "value >= 0 && max > 0 && value <= max",
     [] { tova_semaphore_create(&semaphore, -1, 1); }},
    {"SemaphoreWithoutRoom", "semaphore", "value >= 0 && max > 0 && value <= max",
     [] { tova_semaphore_create(&semaphore, 0, 0); }},
    {"GlobalEventNull", "global_event", "ge", [] { tova_global_event_wait(none<tova_global_event>()); }},
    {"GlobalEventUnstamped", "global_event", "ge->_version == tova_version",
     [] { tova_global_event_try_wait(unstamped<tova_global_event>()); }},
    {"GlobalEventNameless", "global_event", "name", [] { tova_global_event_create(&global_event, nullptr); }},
    {"GlobalEventBackslash", "global_event", "strchr(name, '\\\\') == NULL",
     [] { tova_global_event_create(&global_event, "a\\b"); }},
    {"GlobalEventSlash", "global_event", "strchr(name, '/') == NULL", [] { tova_global_event_exists("a/b"); }},
    {"GlobalEventNameTooLong", "global_event", "false",
     [] { tova_global_event_create(&global_event, std::string(1023, 'n').c_str()); }},
    {"ThreadNull", "thread", "t", [] { tova_thread_join(none<tova_thread>()); }},
    {"ThreadUnstamped", "thread", "t->_version == tova_version", [] { tova_thread_id_get(unstamped<tova_thread>()); }},
    {"ThreadStartedTwice", "thread", "false",
     [] {
         tova_thread_start(thread(), idle, nullptr);
         tova_thread started = *thread();
         started._target = idle;
         tova_thread_start(&started, idle, nullptr);
     }},
    {"ThreadWithoutTarget", "thread", "t->_target",
     [] {
         tova_thread* t = thread();
         tova_thread_start(t, nullptr, nullptr);
         pthread_join(t->_handle, nullptr);
     }},
    {"ThreadThatJoinsItself", "thread", "false",
     [] {
         tova_thread* t = thread();
         t->_target = idle;
         t->_handle = pthread_self();
         tova_thread_join(t);
     }},
    {"CounterBeforeStartUp", "mutex", "m->_version == tova_version",
     [] {
         uint32_t counter = 0;
         tova_shutdown();
         tova_safe_increment(&counter);
     }},
    {"ClockBeforeStartUp", "clock", "g_resolution",
     [] {
         g_resolution = 0;
         tova_time_ms(1);
     }},
    {"TimeNull", "clock", "t", [] { tova_time_string(nullptr, tova_time_form_header, small, 4); }},
    {"TimeWeekDay", "clock", "t->week_day < 7", [] { tova_time_string(&strange, tova_time_form_header, small, 4); }},
    {"TimeMonth", "clock", "t->month >= 1 && t->month <= 12",
     [] { tova_time_string(&monthless, tova_time_form_header, small, 4); }},
    {"TimeForm", "clock", "false", [] { tova_time_string(&strange, 4, small, 4); }},
    {"CopyTooLong", "text", "false", [] { tova_strcpy(small, 3, "abc"); }},
    {"CatTooLong", "text", "false",
     [] {
         tova_strcpy(small, 4, "ab");
         tova_strcat(small, 4, "cd");
     }},
    {"WideTooLong", "text", "false",
     [] {
         wchar_t wide[3];
         tova_utf8_to_wide(wide, 3, "abc");
     }},
    {"WideWithoutRoom", "text", "size > 1",
     [] {
         wchar_t wide[1];
         tova_utf8_to_wide(wide, 1, "");
     }},
    {"WideLengthCut", "text", "!is_cut_off(src)", [] { tova_utf8_to_wide_length("a\xE2\x82"); }},
    {"StringUnstamped", "text", "s->_version == tova_version",
     [] { tova_string_append(unstamped<tova_string>(), "x"); }},
    {"FileNull", "file", "f", [] { tova_file_close(none<tova_file>()); }},
    {"FileUnstamped", "file", "f->_version == tova_version",
     [] { tova_file_open(unstamped<tova_file>(), "/dev/null", 0); }},
    {"FileOpenedTwice", "file", "f->_file == INVALID_FILE", [] { tova_file_open(opened(), "/dev/null", 0); }},
    {"FileMode", "file", "false",
     [] {
         tova_file_init(unstamped<tova_file>());
         tova_file_open(unstamped<tova_file>(), "/dev/null", 5);
     }},
    {"FindPattern", "file", "false", [] { tova_file_find_first_pattern(unstamped<tova_file_find>(), "/", "*.txt"); }},
    {"DirectoryKind", "directory", "false", [] { tova_directory_get(5, small, sizeof small); }},
    {"DirectoryTooLong", "text", "false", [] { tova_directory_get(tova_directory_temporary, small, 2); }},
    {"SecurityUnstamped", "security", "s->_version == tova_version",
     [] { tova_security_get(unstamped<tova_security>()); }},
    {"SecurityWho", "security", "false", [] { tova_security_set(security(), 4, 1); }},
    {"HttpNull", "tova-web", "h", [] { tova_http_close(none<tova_http>()); }},
    {"HttpUnstamped", "tova-web", "h->_version == tova_version",
     [] { tova_http_request(unstamped<tova_http>(), nullptr, 0); }},
    {"HttpResponseNull", "tova-web", "r", [] { tova_http_response_destroy(nullptr); }},
    {"HttpResponseUnstamped", "tova-web", "r->_version == tova_version",
     [] {
         tova_http h;
         tova_http_init(&h);
         tova_http_request(&h, unstamped<tova_http_response>(), 0);
     }},
};

class Assertion : public testing::TestWithParam<Misuse>
{};

TEST_P(Assertion, NamesFileLineAndExpressionAndAborts)
{
#if defined(__SANITIZE_THREAD__)
    if (GetParam().name == std::string("MutexOfAnother"))
        GTEST_SKIP() << "the thread sanitizer reports this misuse before the library can";
#endif
    EXPECT_ASSERTION(GetParam().action(), std::string("inc/lumo/tova/") + GetParam().file, GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Tova, Assertion, testing::ValuesIn(misuses),
                         [](const auto& tested) { return std::string(tested.param.name); });

} // namespace
