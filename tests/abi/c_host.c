/* The C headers twice over, as the strictest C99 host may include them, and a use of some of what they declare: how
   records are laid out, that the rest is exported, and what it does, is looked at elsewhere. */
#include "analytics.h"

#include "lumo/tova/tova-web.h"
#include "lumo/tova/tova.h"

#include "analytics.h"
#include "lumo/tova/tova-web.h"
#include "lumo/tova/tova.h"

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
