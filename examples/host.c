/* A host of the analytics library, from its first call to its last: a session, a dozen varied events, an upload that
 * waits, and one in batches that reports to observers.
 *
 *     host URL FOLDER [offline]
 *
 * Events go to FOLDER/events.log and from there to URL. Every event is printed as it was logged. With "offline" both
 * uploads wait for their outcome: a machine without any route gives up what it has queued. */
#define _POSIX_C_SOURCE 200809L /* for the clock and the threads: the library needs C99 alone */

#include "analytics.h"

#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

/* What the observers leave for main(): they run on a thread of the library's own. */
static pthread_mutex_t outcome_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t outcome_known = PTHREAD_COND_INITIALIZER;
static int upload_ended;
static uint32_t upload_outcome;

static void leave_outcome(uint32_t outcome)
{
    pthread_mutex_lock(&outcome_lock);
    upload_outcome = outcome;
    upload_ended = 1;
    pthread_cond_signal(&outcome_known);
    pthread_mutex_unlock(&outcome_lock);
}

static void on_complete(void* context, uint32_t value, double amount)
{
    printf("%s observer: value %u, amount %g\n", (const char*)context, value, amount);
    leave_outcome(ANALYTICS_OK);
}

static void on_error(void* context, uint32_t value, double amount)
{
    printf("%s observer: %s (%u), amount %g\n", (const char*)context, analytics_result_text(value), value, amount);
    leave_outcome(value);
}

static void on_amount(void* context, uint32_t value, double amount)
{
    printf("%s observer: value %u, amount %g\n", (const char*)context, value, amount);
}

/* Every call of the library returns a code, which a host may check. */
static void check(uint32_t code)
{
    if (code != ANALYTICS_OK) {
        fprintf(stderr, "host: %s (%u)\n", analytics_result_text(code), code);
        exit(1);
    }
}

/* The name must stay until the event's end: it is not copied. Literals do. */
static void begin(analytics_session* session, const char* name)
{
    static int number;
    check(analytics_event_begin(session, name));
    check(analytics_name_int32_add(session, "number", ++number));
}

static void end(analytics_session* session)
{
    /* Static and so full of zeros: the copy brings no terminator when the text fills all it may. */
    static char text[4096];
    check(analytics_event_end(session));
    check(analytics_log_get(session, text, sizeof text - 1));
    printf("logged %s\n", text);
}

/* Objects and arrays nest to any depth, in each other and in themselves. */
static void log_document_opened(analytics_session* session)
{
    begin(session, "document_opened");
    check(analytics_name_string_add(session, "title", "Überschrift: \"Quartal\"\n\t100 %"));
    check(analytics_name_object_begin(session, "size"));
    check(analytics_name_int32_add(session, "pages", 12));
    check(analytics_name_int64_add(session, "bytes", INT64_C(5000000000)));
    check(analytics_name_array_begin(session, "margins"));
    check(analytics_float64_add(session, 2.5));
    check(analytics_float64_add(session, 1e20));
    check(analytics_array_end(session));
    check(analytics_object_end(session));
    check(analytics_name_bool_add(session, "read_only", false));
    end(session);
}

static void log_layers(analytics_session* session)
{
    int i, j;
    begin(session, "layers");
    check(analytics_name_array_begin(session, "layers"));
    for (i = 0; i < 3; ++i) {
        check(analytics_object_begin(session));
        check(analytics_name_int32_add(session, "id", i));
        check(analytics_name_array_begin(session, "points"));
        for (j = 0; j <= i; ++j) {
            check(analytics_array_begin(session));
            check(analytics_int32_add(session, j));
            check(analytics_int32_add(session, -j));
            check(analytics_array_end(session));
        }
        check(analytics_array_end(session));
        check(analytics_object_end(session));
    }
    check(analytics_array_end(session));
    end(session);
}

/* One array may hold values of every kind. */
static void log_mixture(analytics_session* session)
{
    begin(session, "mixture");
    check(analytics_name_array_begin(session, "values"));
    check(analytics_string_add(session, "text"));
    check(analytics_string_add(session, NULL));
    check(analytics_int32_add(session, INT32_MIN));
    check(analytics_int64_add(session, INT64_MIN));
    check(analytics_bool_add(session, true));
    check(analytics_float64_add(session, 0.1));
    check(analytics_array_end(session));
    check(analytics_name_object_begin(session, "empty"));
    check(analytics_object_end(session));
    end(session);
}

static void log_machine(analytics_session* session)
{
    static const char* const keys[] = {"os_name",  "os_ver",   "arch",     "cpu",     "ram_total",
                                       "ram_free", "vm_total", "hd_total", "hd_free", "tz"};
    size_t i;
    begin(session, "machine");
    for (i = 0; i < sizeof keys / sizeof keys[0]; ++i)
        (void)analytics_property_add(session, keys[i]); /* not every machine has every property */
    end(session);
}

/* Allowed in an event although JSON readers refuse it: the library writes what the host passes. */
static void log_oddities(analytics_session* session)
{
    begin(session, "oddities");
    check(analytics_name_string_add(session, "control", "bell \a, escape \x1b[1m, no UTF-8 \xff"));
    check(analytics_name_float64_add(session, "not_a_number", NAN));
    check(analytics_name_float64_add(session, "endless", -INFINITY));
    end(session);
}

static void log_simple(analytics_session* session, const char* name, const char* key, const char* value)
{
    begin(session, name);
    check(analytics_name_string_add(session, key, value));
    end(session);
}

static void log_first_events(analytics_session* session)
{
    log_simple(session, "launch", "language", "de");
    log_document_opened(session);
    log_layers(session);
    log_mixture(session);
    log_machine(session);
    log_oddities(session);
    log_simple(session, "tool", "name", "lasso");
    log_simple(session, "tool", "name", "brush");
    begin(session, "nothing_more");
    end(session);
}

static void log_later_events(analytics_session* session)
{
    log_simple(session, "export", "format", "png");
    begin(session, "export_done");
    check(analytics_name_float64_add(session, "seconds", 1.25));
    check(analytics_name_int64_add(session, "bytes", 73214));
    end(session);
    log_simple(session, "tool", "name", "eraser");
    log_simple(session, "quit", "reason", "user");
}

/* Starts an upload and waits, two minutes at most, for what its observers receive. */
static uint32_t send_and_watch(analytics_session* session)
{
    struct timespec limit;
    uint32_t outcome;
    clock_gettime(CLOCK_REALTIME, &limit);
    limit.tv_sec += 120;
    check(analytics_send(session, 0));
    pthread_mutex_lock(&outcome_lock);
    while (!upload_ended && pthread_cond_timedwait(&outcome_known, &outcome_lock, &limit) == 0) {
    }
    outcome = upload_ended ? upload_outcome : (uint32_t)ANALYTICS_SEND_FAILED;
    pthread_mutex_unlock(&outcome_lock);
    return outcome;
}

/* What the session has to tell of its deliveries. */
static void print_figures(analytics_session* session)
{
    analytics_stats stats;
    char reason[300];
    check(analytics_stats_get(session, &stats, sizeof stats)); /* of the size that this header knows */
    printf("%u accepted, %u delivered, %u dropped; %u bytes waiting; %u requests, %u failed\n",
           (unsigned)stats.events_accepted, (unsigned)stats.events_delivered, (unsigned)stats.events_dropped,
           (unsigned)stats.bytes_waiting, (unsigned)stats.requests, (unsigned)stats.requests_failed);
    check(analytics_last_error(session, reason, sizeof reason));
    if (reason[0] != '\0')
        printf("the last request failed: %s\n", reason);
}

static void configure(analytics_config* config, const char* url, const char* folder)
{
    memset(config, 0, sizeof *config);
    snprintf(config->upload_url, sizeof config->upload_url, "%s", url);
    snprintf(config->event_log_file, sizeof config->event_log_file, "%s/events.log", folder);
    snprintf(config->pid_file, sizeof config->pid_file, "%s/unique-id", folder);
    snprintf(config->application_id, sizeof config->application_id, "example-host");
    snprintf(config->application_version, sizeof config->application_version, "1.0");
}

int main(int argc, char** argv)
{
    analytics_config config;
    analytics_session* session;
    int offline;
    if (argc < 3) {
        fprintf(stderr, "usage: host URL FOLDER [offline]\n");
        return 2;
    }
    offline = argc > 3 && strcmp(argv[3], "offline") == 0;
    configure(&config, argv[1], argv[2]);
    session = analytics_initialize(&config); /* the record is copied and not needed any more */
    if (!session)
        return 1;
    /* Before the first send, because the lists take no lock. The context is passed to the observer unchanged. */
    check(analytics_observer_add(session, "complete", on_complete, "complete"));
    check(analytics_observer_add(session, "error", on_error, "error"));
    check(analytics_observer_add(session, "size", on_amount, "size"));
    check(analytics_observer_add(session, "progress", on_amount, "progress"));

    log_first_events(session);
    /* Uploads happen every hour by themselves; a program that does not live that long sends before it ends. */
    printf("sending, and waiting for the outcome\n");
    check(analytics_send(session, 1));

    /* From here on in batches: what is logged while an upload is under way is safe, and a repetition does no harm. A
     * host chooses this before its first event; this one shows that what waits is never lost by a change. */
    check(analytics_option_set(session, "delivery", "batches"));
    check(analytics_option_set(session, "compress", "gzip"));
    log_later_events(session);
    printf(offline ? "sending, and waiting for the outcome\n" : "sending, and watching the outcome\n");
    check(offline ? analytics_send(session, 1) : send_and_watch(session));

    print_figures(session);
    /* Ends the library's threads: no observer is called any more. */
    analytics_shutdown(session);
    return 0;
}
