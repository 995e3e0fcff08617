/* A C99 host of the portability layer: one use of each noun, linked against the shared library alone. */
#include "lumo/tova/tova-web.h"
#include "lumo/tova/tova.h"

#include <stdio.h>
#include <string.h>

static int failures;

static void expect(int held, const char* what)
{
    if (held)
        return;
    fprintf(stderr, "does not hold: %s\n", what);
    ++failures;
}

#define EXPECT(what) expect((what) != 0, #what)

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

static void threads_and_signals(void)
{
    tova_thread thread;
    tova_global_event shared;
    char name[64];
    int worked = 0;
    tova_mutex_create(&mutex);
    tova_event_create(&done, 1);
    tova_semaphore_create(&slots, 0, 1);
    tova_thread_create(&thread);
    EXPECT(tova_thread_id_get(&thread) == 1); /* the first of this process */
    EXPECT(tova_thread_start(&thread, work, &worked));
    EXPECT(tova_semaphore_set(&slots));
    EXPECT(tova_event_wait_time(&done, 30000));
    tova_thread_join(&thread);
    tova_thread_destroy(&thread);
    EXPECT(worked == 1 && counter == 1);
    tova_sprintf(name, (int32_t)sizeof name, "tova-abi-%d", (int)tova_process_id());
    EXPECT(tova_global_event_create(&shared, name));
    tova_global_event_set(&shared);
    EXPECT(tova_global_event_try_wait(&shared));
    tova_global_event_destroy(&shared);
    tova_semaphore_destroy(&slots);
    tova_event_destroy(&done);
    tova_mutex_destroy(&mutex);
}

static int32_t logged_level;

static void remember(int32_t level, const char* message)
{
    (void)message;
    logged_level = level;
}

static void clock_and_text(void)
{
    const uint64_t start = tova_time_units();
    tova_time now;
    tova_string grown;
    wchar_t wide[8];
    char text[64];
    tova_log_register(remember);
    tova_log(7, "%s", "heard");
    tova_log_register(NULL);
    EXPECT(logged_level == 7);
    tova_time_gmt(&now);
    EXPECT(tova_time_string(&now, tova_time_form_header, text, (int32_t)sizeof text) == 26);
    EXPECT(tova_utf8_to_wide(wide, 8, "a\xC3\xA9") == 3 && wide[1] == 0xE9);
    tova_strpath(text, sizeof text, "folder", "name");
    tova_string_init(&grown);
    tova_string_append(&grown, text);
    EXPECT(strcmp(tova_string_get(&grown), "folder/name") == 0);
    tova_string_clear(&grown);
    EXPECT(tova_time_ns(tova_time_units() - start) > 0);
}

static void files_and_directories(void)
{
    tova_file file;
    tova_file_info info;
    tova_file_find walk;
    tova_security security;
    char folder[1024], path[1024], name[64];
    tova_directory_get(tova_directory_temporary, folder, sizeof folder);
    tova_sprintf(name, (int32_t)sizeof name, "tova-abi-%d", (int)tova_process_id());
    tova_strpath(folder, sizeof folder, folder, name);
    tova_strpath(path, sizeof path, folder, "file");
    tova_security_init(&security);
    tova_security_set(&security, tova_security_all, tova_security_full);
    EXPECT(tova_directory_create(folder, &security, 0));
    tova_file_init(&file);
    EXPECT(tova_file_open(&file, path, tova_file_open_or_create));
    EXPECT(tova_file_write(&file, "text", 4));
    tova_file_close(&file);
    EXPECT(tova_file_info_get(path, &info) && info.size == 4);
    EXPECT(tova_file_find_first(&walk, folder) && strcmp(tova_file_find_name(&walk), "file") == 0);
    tova_file_find_close(&walk);
    EXPECT(tova_file_remove(path) && tova_directory_remove(folder));
}

static void web(void)
{
    tova_http http;
    tova_http_response response;
    tova_uri uri;
    char decoded[8];
    tova_http_initialize(0);
    tova_http_init(&http);
    tova_http_response_create(&response);
    EXPECT(!tova_http_request(&http, &response, tova_http_get)); /* no URL yet */
    tova_http_response_destroy(&response);
    tova_http_close(&http);
    tova_http_shutdown();
    tova_uri_parse(&uri, "http://user@host:8080/path");
    EXPECT(uri.host.length == 9 && strncmp(uri.host.text, "host:8080", 9) == 0);
    EXPECT(tova_uri_decode(decoded, sizeof decoded, "a%2Fb", 5) == 3);
}

int main(void)
{
    threads_and_signals();
    clock_and_text();
    files_and_directories();
    web();
    tova_assert(failures == 0);
    puts("every noun answered");
    return 0;
}
