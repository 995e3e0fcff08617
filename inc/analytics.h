/**
 * @file analytics.h
 * The C interface of the event analytics library: the only header that most hosts need. C99 and C++.
 *
 * A host opens a session, builds events, and closes the session:
 *
 *     analytics_config config = {0};
 *     strcpy(config.upload_url, "https://collector.example/events");
 *     strcpy(config.event_log_file, "/home/me/.local/share/app/events.log");
 *     strcpy(config.pid_file, "/home/me/.local/share/app/id");
 *     strcpy(config.application_id, "app");
 *     strcpy(config.application_version, "1.0");
 *     analytics_session* session = analytics_initialize(&config);
 *
 *     analytics_event_begin(session, "launch");
 *     analytics_name_string_add(session, "user", "a");
 *     analytics_event_end(session);                          // the event is a line of the event log file now
 *
 *     analytics_send(session, 1);                            // optional: the session uploads by itself every hour
 *     analytics_shutdown(session);
 *
 * **Text.** Every text is 8-bit, NUL-terminated and passes through unchanged; use UTF-8.
 *
 * **Threads.** Sessions are independent of each other, also when they share one event log file, and so are processes.
 * One session is driven by one thread at a time: the building calls take no lock. Observers are called on a thread of
 * the library's own. **A host must not call analytics_shutdown() from an observer**: it waits for the very thread that
 * it would be called on.
 *
 * **Fork.** A session belongs to the process that opened it. In a child made by fork() an inherited session may build
 * and log events and must be closed, if at all, with analytics_shutdown(), which then only frees memory; it never
 * sends (analytics_send() answers 200). A child that wants to send opens a session of its own.
 *
 * **Errors.** Functions answer an #analytics_result. A refused call changes nothing. analytics_result_text() gives the
 * sentence that belongs to a code. Any call that takes a session may also answer 101 when memory runs out; it is not
 * listed below.
 *
 * **Ownership.** The library copies every value at once. The exception is names: the event's name must stay valid until
 * analytics_event_end(), the name of an object or array until its own end call.
 */
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/** @name The version of this header. The build, the packages and the library's own version take it from here. */
/** @{ */
#define ANALYTICS_VERSION_MAJOR 1 /**< a host must be compiled anew for another one */
#define ANALYTICS_VERSION_MINOR 0 /**< calls were added */
#define ANALYTICS_VERSION_PATCH 0 /**< faults were fixed */
/** The three as text, such as "1.0.0". */
#define ANALYTICS_VERSION                                                                                              \
    ANALYTICS_VERSION_TEXT(ANALYTICS_VERSION_MAJOR, ANALYTICS_VERSION_MINOR, ANALYTICS_VERSION_PATCH)
/** @} */
/** @cond */
#define ANALYTICS_VERSION_TEXT(major, minor, patch) ANALYTICS_VERSION_JOIN(major, minor, patch)
#define ANALYTICS_VERSION_JOIN(major, minor, patch) #major "." #minor "." #patch
/** @endcond */

/** Marks what the shared library exports. */
#if defined(__GNUC__)
#define ANALYTICS_API __attribute__((visibility("default")))
#else
#define ANALYTICS_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** One session. Opaque; made by analytics_initialize(), gone after analytics_shutdown(). */
typedef struct analytics_session analytics_session;

/**
 * What a session is opened with: 2,970 bytes of fixed arrays, each NUL-terminated 8-bit text.
 *
 * The host fills it in (unused fields empty) and may discard it after analytics_initialize(). A field that comes
 * without a terminator is read to its size and no further.
 */
typedef struct analytics_config
{
    char upload_url[2000];        /**< address of the server, http or https */
    char event_log_file[260];     /**< path of the event log file, where events wait; its folder must exist */
    char pid_file[260];           /**< path of the file that keeps this installation's unique id; never rewritten */
    char unique_id[40];           /**< unique id to use instead; empty: taken from pid_file, or made anew */
    char application_id[100];     /**< written into every event */
    char application_version[50]; /**< written into every event, and sent with every upload */
    char certificate_file[260]; /**< certificate authorities (PEM) for https; empty: "cacert.pem" beside the program */
} analytics_config;

/**
 * Result codes of all functions, and the codes that "error" observers receive.
 *
 * analytics_property_get() and analytics_property_add() pass on what the machine query answered: 1, 2 and 402.
 */
typedef enum analytics_result
{
    ANALYTICS_OK = 0,                       /**< done */
    ANALYTICS_UNSUPPORTED = 1,              /**< property: this machine has no such fact */
    ANALYTICS_QUERY_FAILED = 2,             /**< property: the operating system did not answer */
    ANALYTICS_NO_SESSION = 100,             /**< the session is null */
    ANALYTICS_NO_MEMORY = 101,              /**< memory ran out; the event being built may lack what was being added */
    ANALYTICS_UNKNOWN_PROPERTY = 104,       /**< no property has this key */
    ANALYTICS_SEND_FAILED = 200,            /**< the upload failed or could not be started; the events are kept */
    ANALYTICS_SEND_NOT_FOUND = 201,         /**< observers: the server answered 404 */
    ANALYTICS_SEND_PROXY_LOGIN = 202,       /**< observers: the proxy wants credentials (407) */
    ANALYTICS_SEND_TIMEOUT = 203,           /**< observers: the server gave up waiting for the request (408) */
    ANALYTICS_SEND_ADDRESS_TOO_LONG = 204,  /**< observers: the server found the address too long (414) */
    ANALYTICS_UNKNOWN_OBSERVER_EVENT = 205, /**< not "complete", "error", "size" or "progress" */
    ANALYTICS_SEND_TIME_OVER = 206,         /**< time ran out while events were still waiting; they are kept */
    ANALYTICS_SEND_NO_CONSENT = 207,        /**< the user has not consented, see analytics_consent_set() */
    ANALYTICS_EVENT_OPEN = 300,             /**< an event is open already */
    ANALYTICS_NO_EVENT = 301,               /**< no event is open */
    ANALYTICS_NESTED_OPEN = 302,            /**< the event still holds an open object or array */
    ANALYTICS_NO_OBJECT_OPEN = 303,         /**< only the event itself is open, no object in it */
    ANALYTICS_NO_ARRAY_OPEN = 304,          /**< only the event itself is open, no array in it */
    ANALYTICS_NAME_REQUIRED = 400,          /**< inside an object a name is needed; also: an array's end in an object */
    ANALYTICS_NAME_REFUSED = 401, /**< inside an array nothing has a name; also: an object's end in an array */
    ANALYTICS_SYSTEM_VERSION_UNREADABLE = 402, /**< property "os_ver": the system's version could not be read */
    ANALYTICS_UNKNOWN_OPTION = 500,            /**< no option has this key */
    ANALYTICS_VALUE_REFUSED = 501,             /**< not a value that can be taken, or no room for one */
    ANALYTICS_CONTEXT_FULL = 502               /**< the context has as many members as it can */
} analytics_result;

/**
 * Receives the progress and outcome of an asynchronous upload. Called on a thread of the library, for one upload at a
 * time.
 *
 * What the arguments mean depends on the event it was registered for, see analytics_observer_add(). It may build
 * and send through another session, must not call analytics_shutdown(), must not throw, and should return soon:
 * transfers wait for it.
 *
 * @param context the pointer given at registration
 * @param value   an #analytics_result, or a number of bytes as 32 bits
 * @param amount  a speed in bytes per second, or 0
 */
typedef void (*analytics_observer)(void* context, uint32_t value, double amount);

/** @name Session */
/** @{ */

/**
 * Opens a session and starts its background upload (every hour, first after one hour).
 *
 * Makes or reads the unique-id file; touches neither network nor event log file. Nothing that goes wrong with files is
 * reported: an id that cannot be saved is used until shutdown.
 *
 * @param config copied; null gives null
 * @return the session, to be closed with analytics_shutdown(); null when memory ran out
 */
ANALYTICS_API analytics_session* analytics_initialize(const analytics_config* config);

/**
 * Closes a session: ends its threads, cancels its transfers, frees everything. Null is ignored.
 *
 * Takes milliseconds when idle; waits for an hourly upload that is under way (at most its time-out of a minute). Events
 * in the event log file stay there for the next session; an event that is still being built is dropped. Must not be
 * called from an observer. A program may also exit without it.
 */
ANALYTICS_API void analytics_shutdown(analytics_session* session);

/** The sentence that belongs to a code, static text, never null; other numbers get one sentence of their own. */
ANALYTICS_API const char* analytics_result_text(uint32_t code);

/** The version of the library that runs; ANALYTICS_VERSION is that of the header. Static text; any thread. */
ANALYTICS_API const char* analytics_version(void);

/** @} */
/** @name Building events
 *
 * One event per session at a time; its root is an object. Inside an object everything is added by name, inside an array
 * without one. All answer 100 for a null session and 301 with no event open.
 */
/** @{ */

/** Opens an event. @param name stays the host's, valid until analytics_event_end() @return 0, 100, 300 */
ANALYTICS_API uint32_t analytics_event_begin(analytics_session* session, const char* name);

/**
 * Ends the event and appends it to the event log file, in one write.
 *
 * When the file cannot be written the event is lost and 0 is returned all the same; earlier events stay whole.
 *
 * @return 0, 100, 301, 302 (the event stays open)
 */
ANALYTICS_API uint32_t analytics_event_end(analytics_session* session);

/** Opens an object in an object. @param name stays the host's until its end call @return 0, 100, 301, 400, 401 */
ANALYTICS_API uint32_t analytics_name_object_begin(analytics_session* session, const char* name);
/** Opens an object in an array. @return 0, 100, 301, 400 */
ANALYTICS_API uint32_t analytics_object_begin(analytics_session* session);
/** Ends the innermost object. @return 0, 100, 301, 303, and 401 when the innermost is an array */
ANALYTICS_API uint32_t analytics_object_end(analytics_session* session);

/** Opens an array in an object. @param name stays the host's until its end call @return 0, 100, 301, 400, 401 */
ANALYTICS_API uint32_t analytics_name_array_begin(analytics_session* session, const char* name);
/** Opens an array in an array. @return 0, 100, 301, 400 */
ANALYTICS_API uint32_t analytics_array_begin(analytics_session* session);
/** Ends the innermost array. @return 0, 100, 301, 304, and 400 when the innermost is an object */
ANALYTICS_API uint32_t analytics_array_end(analytics_session* session);

/** Adds a member to the innermost object; a null value is written as null. @return 0, 100, 301, 400, 401 */
ANALYTICS_API uint32_t analytics_name_string_add(analytics_session* session, const char* name, const char* value);
/** Adds a member to the innermost object. @return 0, 100, 301, 400, 401 */
ANALYTICS_API uint32_t analytics_name_int32_add(analytics_session* session, const char* name, int32_t value);
/** Adds a member to the innermost object. @return 0, 100, 301, 400, 401 */
ANALYTICS_API uint32_t analytics_name_int64_add(analytics_session* session, const char* name, int64_t value);
/** Adds a member to the innermost object. @return 0, 100, 301, 400, 401 */
ANALYTICS_API uint32_t analytics_name_uint64_add(analytics_session* session, const char* name, uint64_t value);
/**
 * Adds a text with a length to the innermost object, like a string; a NUL in it is written as "\\u0000".
 *
 * @param text needs no terminator: `size` bytes are read and no more; null is written as null, whatever the size
 * @return 0, 100, 301, 400, 401
 */
ANALYTICS_API uint32_t analytics_name_text_add(analytics_session* session, const char* name, const char* text,
                                               size_t size);
/** Adds a member to the innermost object. @return 0, 100, 301, 400, 401 */
ANALYTICS_API uint32_t analytics_name_bool_add(analytics_session* session, const char* name, bool value);
/** Adds a member to the innermost object, with six significant digits. @return 0, 100, 301, 400, 401 */
ANALYTICS_API uint32_t analytics_name_float64_add(analytics_session* session, const char* name, double value);

/** Adds an element to the innermost array; a null value is written as null. @return 0, 100, 301, 400 */
ANALYTICS_API uint32_t analytics_string_add(analytics_session* session, const char* value);
/** Adds an element to the innermost array. @return 0, 100, 301, 400 */
ANALYTICS_API uint32_t analytics_int32_add(analytics_session* session, int32_t value);
/** Adds an element to the innermost array. @return 0, 100, 301, 400 */
ANALYTICS_API uint32_t analytics_int64_add(analytics_session* session, int64_t value);
/** Adds an element to the innermost array. @return 0, 100, 301, 400 */
ANALYTICS_API uint32_t analytics_uint64_add(analytics_session* session, uint64_t value);
/** Adds a text with a length to the innermost array; as analytics_name_text_add(). @return 0, 100, 301, 400 */
ANALYTICS_API uint32_t analytics_text_add(analytics_session* session, const char* text, size_t size);
/** Adds an element to the innermost array. @return 0, 100, 301, 400 */
ANALYTICS_API uint32_t analytics_bool_add(analytics_session* session, bool value);
/** Adds an element to the innermost array, with six significant digits. @return 0, 100, 301, 400 */
ANALYTICS_API uint32_t analytics_float64_add(analytics_session* session, double value);

/**
 * Copies the object of the last event that was ended (without the common fields and the event's name).
 *
 * @param buffer filled like strncpy() does: **no terminator** when the text is `length` bytes or longer, zeros after a
 *               shorter one; null: nothing is copied
 * @param length size of the buffer in bytes
 * @return 0, 100
 */
ANALYTICS_API uint32_t analytics_log_get(analytics_session* session, char* buffer, size_t length);

/** @} */
/** @name Context
 *
 * Members that every later event of the session begins with, before its own and behind its stamps (option `stamp`): a
 * user's id, a plan, a screen. At most 64, in the order in which they were first set; what is set while an event is
 * open counts from the next one. By the thread that builds events. Names and values are copied.
 */
/** @{ */

/** Sets a member; a name that is there already gets the new value. @return 0, 100, 400 (null name), 502 */
ANALYTICS_API uint32_t analytics_context_string_set(analytics_session* session, const char* name, const char* value);
/** Likewise. @return 0, 100, 400, 502 */
ANALYTICS_API uint32_t analytics_context_int64_set(analytics_session* session, const char* name, int64_t value);
/** Likewise, with six significant digits. @return 0, 100, 400, 502 */
ANALYTICS_API uint32_t analytics_context_float64_set(analytics_session* session, const char* name, double value);
/** Likewise. @return 0, 100, 400, 502 */
ANALYTICS_API uint32_t analytics_context_bool_set(analytics_session* session, const char* name, bool value);
/** Removes a member; one that is not there is no mistake. @return 0, 100, 400 (null name) */
ANALYTICS_API uint32_t analytics_context_remove(analytics_session* session, const char* name);

/** @} */
/** @name Properties of the machine
 *
 * Keys: os_name os_ver mfg model arch cpu cpu_clock cpu_usage ram_total ram_free vm_total vm_free hd_total hd_free bios
 * uuid tz. "uuid" is a new one at every call.
 *
 * And, told as the system itself has them: system system_version kernel machine locale time_zone desktop display
 * virtualized, which are texts, and processors memory_bytes memory_available_bytes disk_bytes disk_free_bytes
 * boot_seconds, which are numbers. README.md has a sentence and an example for each.
 */
/** @{ */

/**
 * Reads a property. Any thread; needs no session (the argument is ignored, null will do).
 *
 * @param key    one of the keys above; null is an unknown one
 * @param buffer receives text, of a number its decimal digits; must not be null (the process is aborted). 64 bytes hold
 * every value but long models
 * @param size   size of the buffer in bytes, terminator included; at least 1. A value that does not fit gives
 *               the empty text and 0; a constant one (os_name, mfg, arch, ram_free, bios) or a cached one (cpu,
 *               cpu_clock) aborts the process
 * @return 0, 1, 2, 104, 402
 */
ANALYTICS_API uint32_t analytics_property_get(analytics_session* session, const char* key, char* buffer,
                                              unsigned int size);

/**
 * Lists the keys of all properties, each with a sentence that says what it tells.
 *
 * Any thread; needs no session. The texts are static; the order is that above, the same at every call.
 *
 * @param each    called once for each key, before this returns; must not throw; null: nothing happens
 * @param context passed to the callback unchanged
 */
ANALYTICS_API void analytics_property_each(void (*each)(void* context, const char* key, const char* sentence),
                                           void* context);

/**
 * Adds a property to what is innermost, as a string or, where it is one, as a number: in an object under its own key,
 * in an array without.
 *
 * @param name the key
 * @return 0, 100, 301, and what analytics_property_get() answers when that is not 0 (nothing is added then)
 */
ANALYTICS_API uint32_t analytics_property_add(analytics_session* session, const char* name);

/** @} */
/** @name Sending */
/** @{ */

/**
 * Registers an observer of asynchronous uploads. Before the first send, as the lists take no lock, or from within an
 * observer of the same session: one that is added there is called from the next time on.
 *
 * | event      | value                                                    | amount           |
 * |------------|----------------------------------------------------------|------------------|
 * | "complete" | 0                                                        | 0                |
 * | "error"    | 201 for 404, 202 for 407, 203 for 408, 204 for 414, else 200 | 0            |
 * | "size"     | length of the server's answer in bytes                   | 0                |
 * | "progress" | bytes of the answer received so far                      | bytes per second |
 *
 * Byte counts are the bits of a signed 32-bit number: 0xFFFFFFFF (-1) when unknown, 0x80000000 when out of range. A
 * cancelled upload is not reported.
 *
 * @param event    one of the four above, exactly; null is an unknown one
 * @param callback may be null: then it is skipped. Registered twice it is called twice; there is no removal
 * @param context  passed to the callback unchanged
 * @return 0, 100, 205
 */
ANALYTICS_API uint32_t analytics_observer_add(analytics_session* session, const char* event,
                                              analytics_observer callback, void* context);

/**
 * Uploads the event log file now, all of it in one request, and deletes it once the server has taken it.
 *
 * A request is made even when no event is waiting. Events appended between the reading and the deletion of the file are
 * deleted with it: do not log through this file while a send is under way if that matters.
 *
 * @param synchronous not 0: waits for the outcome and calls no observer. 0: returns at once, observers receive the
 * outcome
 * @return 0 (taken, or started), 100, 200 (the file is as it was), 207 (no consent; the events are kept)
 */
ANALYTICS_API uint32_t analytics_send(analytics_session* session, int synchronous);

/**
 * As the synchronous analytics_send(), with a time: returns within `wait_ms` and 100 ms more, also while a name look-up
 * hangs. In batches it waits for a server that asks for a pause (Retry-After).
 *
 * @return 0 (all was taken), 100, 200, 206 (time ran out with events still waiting; they are kept), 207
 */
ANALYTICS_API uint32_t analytics_send_for(analytics_session* session, uint32_t wait_ms);

/** @} */
/** @name Consent */
/** @{ */

/** What the user has agreed to, see analytics_consent_set(). */
typedef enum analytics_consent
{
    ANALYTICS_CONSENT_GIVEN = 0,   /**< events are written and sent; so it is until the host says otherwise */
    ANALYTICS_CONSENT_UNKNOWN = 1, /**< events are written and wait: nothing is sent */
    ANALYTICS_CONSENT_REVOKED = 2  /**< nothing is written and nothing sent, and what waits is deleted */
} analytics_consent;

/**
 * Says what the user has agreed to. Nothing remembers it: a host says it at each start, before its first event.
 *
 * UNKNOWN: nothing is sent by any way until it becomes GIVEN; a transfer under way is ended, its events are kept. In
 * batches nothing waits longer than the option `outbox_days` meanwhile.
 *
 * REVOKED: when this returns, nothing is written any more (the building calls answer as ever, analytics_event_end()
 * writes nowhere and counts nothing), no request starts, a transfer under way is ended, and no byte is handed to the
 * operating system; called from an observer, once that returns. The event log file, everything of the outbox and the
 * unique-id file are deleted; what could not be is told by analytics_last_error(). Consent after that starts with a new
 * id; an id that the host configured is kept. Other sessions and processes on the same log delete on a call of their
 * own, until which they write and send.
 *
 * Any thread, observers included. It waits for writing and sending that are under way: usually less than 100 ms.
 * docs/privacy.md has more.
 *
 * @return 0, 100, 501 (not one of the three)
 */
ANALYTICS_API uint32_t analytics_consent_set(analytics_session* session, analytics_consent consent);

/** @} */
/** @name Options and figures
 *
 * Options are texts, so that new ones need no new interface: docs/options.md has their keys, values and defaults, and
 * docs/delivery.md tells how to choose. Any thread.
 */
/** @{ */

/**
 * Sets an option of the session, at any time; it takes effect from the next event, request or wait.
 *
 * @param key   one of the keys of docs/options.md, exactly; null is an unknown one
 * @param value a word, or plain decimal digits; null is refused. A refused value changes nothing
 * @return 0, 100, 500 (unknown key), 501 (value refused)
 */
ANALYTICS_API uint32_t analytics_option_set(analytics_session* session, const char* key, const char* value);

/**
 * Reads an option as analytics_option_set() takes it.
 *
 * @param value receives what fits, always with a terminator
 * @param size  size of the buffer in bytes, terminator included; 32 hold every value
 * @return 0, 100, 500 (unknown key), 501 (null or empty buffer)
 */
ANALYTICS_API uint32_t analytics_option_get(analytics_session* session, const char* key, char* value, size_t size);

/** Figures of a session, counted from its start, but for those that wait: these are the outbox's (docs/delivery.md). */
typedef struct analytics_stats
{
    uint64_t events_accepted;   /**< analytics_event_end() answered 0 */
    uint64_t events_failed;     /**< of these, lines that could not be written */
    uint64_t events_delivered;  /**< taken by the server */
    uint64_t events_dropped;    /**< thrown away by limits */
    uint64_t batches_waiting;   /**< sealed; in the default mode 0 */
    uint64_t bytes_waiting;     /**< of batches and of the file that is written to */
    uint64_t requests;          /**< made */
    uint64_t requests_failed;   /**< without a 2xx */
    uint64_t failures_in_a_row; /**< back to 0 by a 2xx */
    int64_t last_status;        /**< HTTP status of the last request; 0: none came */
    int64_t last_request_ms;    /**< since 1970 UTC; 0: none yet */
    int64_t next_request_ms;    /**< when the next cycle is due, likewise; 0: none is planned */
} analytics_stats;

/**
 * Reads the figures.
 *
 * @param stats receives at most `size` bytes; what the library does not know is zero
 * @param size  `sizeof(analytics_stats)` as the host's header has it, so that the record can grow
 * @return 0, 100, 501 (null record)
 */
ANALYTICS_API uint32_t analytics_stats_get(analytics_session* session, analytics_stats* stats, size_t size);

/**
 * Why the last request failed: one sentence with the reason and what to do. Empty when it did not, and before the
 * first.
 *
 * @param text receives what fits, always with a terminator; 256 bytes hold all but long paths
 * @return 0, 100, 501 (null text or size 0)
 */
ANALYTICS_API uint32_t analytics_last_error(analytics_session* session, char* text, size_t size);

/** @} */

#ifdef __cplusplus
}
#endif
