/* A C99 host of the portability layer: one use of each noun, linked against the shared library alone. */
#include "lumo/tova/tova-web.h"
#include "lumo/tova/tova.h"

#include <string.h>

static tova_mutex mutex;
static tova_event done;
static tova_semaphore slots;
static uint32_t counter;

static void work(void* argument)
{
    tova_mutex_lock(&mutex);
    *(int*)argument += 1;
    tova_mutex_unlock(&mutex);
    tova_semaphore_wait(&slots);
    tova_safe_increment(&counter);
    tova_event_set(&done);
}

static void threads_and_signals(const char* name)
{
    tova_thread thread;
    tova_global_event shared;
    int worked = 0;
    tova_mutex_create(&mutex);
    tova_event_create(&done, 1);
    tova_semaphore_create(&slots, 0, 1);
    tova_thread_create(&thread);
    tova_assert(tova_thread_id_get(&thread) == 1); /* the first of this process */
    tova_assert(tova_thread_start(&thread, work, &worked));
    tova_assert(tova_semaphore_set(&slots));
    tova_assert(tova_event_wait_time(&done, 30000));
    tova_thread_join(&thread);
    tova_assert(worked == 1 && counter == 1);
    tova_assert(tova_global_event_create(&shared, name));
    tova_global_event_set(&shared);
    tova_assert(tova_global_event_try_wait(&shared));
    tova_global_event_destroy(&shared);
}

static int32_t logged_level;

static void remember(int32_t level, const char* message)
{
    (void)message;
    logged_level = level;
}

static void clock_and_text(void)
{
    tova_time now;
    tova_string grown;
    wchar_t wide[8];
    char text[64];
    tova_log_register(remember);
    tova_log(7, "%s", "heard");
    tova_assert(logged_level == 7);
    tova_time_gmt(&now);
    tova_assert(tova_time_string(&now, tova_time_form_header, text, (int32_t)sizeof text) == 26);
    tova_assert(tova_utf8_to_wide(wide, 8, "a\xC3\xA9") == 3 && wide[1] == 0xE9);
    tova_string_init(&grown);
    tova_string_append(&grown, text);
    tova_assert(strcmp(tova_string_get(&grown), text) == 0);
    tova_string_clear(&grown);
}

static void files_and_directories(const char* name)
{
    tova_file file;
    tova_file_find walk;
    tova_security security;
    char folder[1024], path[1024];
    tova_directory_get(tova_directory_temporary, folder, sizeof folder);
    tova_strpath(folder, sizeof folder, folder, name);
    tova_strpath(path, sizeof path, folder, "file");
    tova_security_init(&security);
    tova_security_set(&security, tova_security_all, tova_security_full);
    tova_assert(tova_directory_create(folder, &security, 0));
    tova_file_init(&file);
    tova_assert(tova_file_open(&file, path, tova_file_open_or_create));
    tova_file_close(&file);
    tova_assert(tova_file_find_first(&walk, folder) && strcmp(tova_file_find_name(&walk), "file") == 0);
    tova_file_find_close(&walk);
    tova_assert(tova_file_remove(path) && tova_directory_remove(folder));
}

static void web(void)
{
    tova_http http;
    tova_http_response response;
    tova_uri uri;
    tova_http_init(&http);
    tova_http_response_create(&response);
    tova_assert(!tova_http_request(&http, &response, tova_http_get)); /* no URL yet */
    tova_http_close(&http);
    tova_uri_parse(&uri, "http://user@host:8080/path");
    tova_assert(uri.host.length == 9 && strncmp(uri.host.text, "host:8080", 9) == 0);
}

int main(void)
{
    char name[64];
    tova_assert(tova_sprintf(name, (int32_t)sizeof name, "tova-abi-%d", (int)tova_process_id()));
    threads_and_signals(name);
    clock_and_text();
    files_and_directories(name);
    web();
    return 0;
}
