/* The C headers twice over, as the strictest C99 host may include them, and a use of some of what they declare: that
   the rest is exported, and what it does, is looked at elsewhere. */
#include "analytics.h"

#include "lumo/tova/tova-web.h"
#include "lumo/tova/tova.h"

#include "analytics.h"
#include "lumo/tova/tova-web.h"
#include "lumo/tova/tova.h"

/* The layout of the records is part of the interface: the stamp comes first in each of them. */
#define STAMP_FIRST(record) typedef char record##_begins_with_its_stamp[offsetof(record, _version) == 0 ? 1 : -1]
STAMP_FIRST(tova_mutex);
STAMP_FIRST(tova_event);
STAMP_FIRST(tova_semaphore);
STAMP_FIRST(tova_global_event);
STAMP_FIRST(tova_thread);
STAMP_FIRST(tova_file);
STAMP_FIRST(tova_file_find);
STAMP_FIRST(tova_security);
STAMP_FIRST(tova_string);
STAMP_FIRST(tova_http);
STAMP_FIRST(tova_http_response);

typedef char the_stamp_is_272[tova_version == 272 ? 1 : -1];
typedef char a_wide_character_has_32_bits[sizeof(wchar_t) == 4 ? 1 : -1];
typedef char a_time_has_20_bytes_and_a_zone[sizeof(tova_time) == 52 ? 1 : -1];

static tova_event done;

static void work(void* argument)
{
    *(int*)argument += 1;
    tova_event_set(&done);
}

int main(void)
{
    tova_thread thread;
    tova_http http;
    int worked = 0;
    tova_event_create(&done, 1);
    tova_thread_create(&thread);
    tova_assert(tova_thread_id_get(&thread) == 1); /* the first of this process */
    tova_assert(tova_thread_start(&thread, work, &worked));
    tova_assert(tova_event_wait_time(&done, 30000));
    tova_thread_join(&thread);
    tova_assert(worked == 1);
    tova_http_init(&http);
    tova_http_close(&http);
    tova_assert(analytics_initialize(NULL) == NULL);
    return 0;
}
