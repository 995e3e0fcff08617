/* A C host: logs one event, and fails to send it to a port where nobody listens. */
#include <analytics.h>
#include <lumo/tova/tova.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char** argv)
{
    analytics_config config;
    analytics_session* session;
    char text[64] = {0};
    memset(&config, 0, sizeof config);
    strcpy(config.upload_url, "http://127.0.0.1:1/");
    strcpy(config.unique_id, "U");
    snprintf(config.event_log_file, sizeof config.event_log_file, "%s", argc > 1 ? argv[1] : "events.log");
    session = analytics_initialize(&config);
    if (analytics_event_begin(session, "c") != ANALYTICS_OK || analytics_event_end(session) != ANALYTICS_OK)
        return 1;
    analytics_log_get(session, text, sizeof text - 1);
    if (strcmp(text, "{ }") != 0 || strcmp(analytics_version(), ANALYTICS_VERSION) != 0 ||
        analytics_send(session, 1) != ANALYTICS_SEND_FAILED)
        return 2;
    analytics_shutdown(session);
    return tova_time_ms(tova_time_units()) > 0 ? 0 : 3;
}
