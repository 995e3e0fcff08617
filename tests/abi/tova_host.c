/* A C99 host of the portability layer, linked against the shared library alone. What each function does is tested
   elsewhere; here they must compile, link and run as C. */
#include "lumo/tova/tova-web.h"
#include "lumo/tova/tova.h"

static tova_mutex mutex;
static tova_event done;
static tova_semaphore slots;

static void work(void* argument)
{
    tova_mutex_lock(&mutex);
    *(int*)argument += 1;
    tova_mutex_unlock(&mutex);
    tova_semaphore_wait(&slots);
    tova_event_set(&done);
}

static void files(const char* name)
{
    tova_file file;
    tova_security security;
    char path[1024];
    tova_directory_get(tova_directory_temporary, path, sizeof path);
    tova_strpath(path, sizeof path, path, name);
    tova_security_init(&security);
    tova_security_set(&security, tova_security_all, tova_security_full);
    tova_file_init(&file);
    tova_assert(tova_file_create(&file, path, &security));
    tova_file_close(&file);
    tova_assert(tova_file_remove(path));
}

int main(void)
{
    tova_thread thread;
    tova_global_event shared;
    tova_http http;
    int worked = 0;
    char name[64];
    tova_assert(tova_sprintf(name, (int32_t)sizeof name, "tova-abi-%d", (int)tova_process_id()));
    tova_mutex_create(&mutex);
    tova_event_create(&done, 1);
    tova_semaphore_create(&slots, 0, 1);
    tova_thread_create(&thread);
    tova_assert(tova_thread_id_get(&thread) == 1); /* the first of this process */
    tova_assert(tova_thread_start(&thread, work, &worked));
    tova_assert(tova_semaphore_set(&slots) && tova_event_wait_time(&done, 30000));
    tova_thread_join(&thread);
    tova_assert(worked == 1);
    tova_assert(tova_global_event_create(&shared, name));
    tova_global_event_destroy(&shared);
    files(name);
    tova_http_init(&http);
    tova_http_close(&http);
    return 0;
}
