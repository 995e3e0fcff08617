#include "settings.h"

#include "http/private_file.h"

#include <charconv>
#include <cstdlib>
#include <unistd.h>

namespace {

const char* const g_store_sentence = "the file that keeps the events, or clickhouse://USER@HOST:PORT,.../DATABASE";
const char* const service_store = "/var/lib/analytics-collector/events.db";

std::string variable_of(const std::string& option)
{
    std::string name = "ANALYTICS_COLLECTOR_";
    for (const char c : option.substr(2))
        name += c == '-' ? '_' : c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
    return name;
}

std::string folder_of_state()
{
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/')
        return state;
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : "") + "/.local/state";
}

std::string wrong_age(const std::string& text)
{
    return text.empty() || age_of(text) ? "" : "an age is a number and d, h or m, such as 90d";
}

template <class Value>
CLI::Option* add(CLI::App& command, const char* option, Value& value, const char* sentence)
{
    return command.add_option(option, value, sentence)->envname(variable_of(option))->capture_default_str();
}

} // namespace

void add_settings(CLI::App& command, Settings& settings)
{
    const CLI::Validator age(wrong_age, "AGE");
    add(command, "--store", settings.store, g_store_sentence);
    add(command, "--listen", settings.listen, "ADDRESS:PORT for uploads, and for the page without --page");
    add(command, "--page", settings.page, "ADDRESS:PORT for the page alone");
    add(command, "--keys", settings.keys, "file of lines KEY APPLICATION; uploads then come to /u/KEY alone");
    add(command, "--users", settings.users, "file of those who may look at the page");
    add(command, "--secret", settings.secret, "file that logins are signed with: they outlive a restart");
    add(command, "--tokens", settings.tokens, "file of bearer tokens for programs that read the figures");
    add(command, "--host", settings.hosts, "a further name of the page (repeatable)");
    add(command, "--proxy", settings.proxies, "address of a proxy whose X-Forwarded-For counts (repeatable)");
    add(command, "--tls-cert", settings.tls_certificate, "certificate chain (PEM); read again on SIGHUP");
    add(command, "--tls-key", settings.tls_key, "its key (PEM)");
    add(command, "--body-limit", settings.uploads.intake.body, "bytes of an upload, as sent and as unpacked");
    add(command, "--line-limit", settings.uploads.intake.line, "bytes of an event line");
    add(command, "--rate-address", settings.uploads.rate_address, "uploads a second of one address")
        ->check(CLI::NonNegativeNumber);
    add(command, "--rate-installation", settings.uploads.rate_installation, "uploads a second of one installation")
        ->check(CLI::NonNegativeNumber);
    add(command, "--connections", settings.server.connections, "connections at once");
    add(command, "--connections-address", settings.server.connections_address, "connections at once of one address");
    add(command, "--header-seconds", settings.header_seconds, "from a request's first byte to its blank line");
    add(command, "--drain-seconds", settings.drain_seconds, "after SIGTERM: still taken, while /healthz says 503")
        ->check(CLI::Range(0, 3600));
    add(command, "--disk-reserve", settings.uploads.disk_reserve, "free bytes below which uploads wait");
    add(command, "--token-threads", settings.uploads.token_threads, "threads that check tokens; 0: one a core");
    add(command, "--retain", settings.retain, "age at which events go, such as 90d")->check(age);
    add(command, "--retain-rollups", settings.retain_rollups, "age at which the daily figures go")->check(age);
    add_cluster_words(command, settings.cluster);
    add(command, "--log", settings.log, "format of the log on standard error")->check(CLI::IsMember({"text", "json"}));
    add(command, "--config", settings.config, "a file with these options, one NAME=VALUE a line");
}

void add_cluster_words(CLI::App& command, ClusterWords& words)
{
    static const std::map<std::string, store::AnswerBy> ways = {{"replica", store::AnswerBy::replica},
                                                                {"spool", store::AnswerBy::spool}};
    store::ClusterOptions& options = words.options;
    add(command, "--cluster-password", options.password_file, "file with the password for the cluster");
    add(command, "--cluster-ca", options.ca_file, "certificates (PEM) that vouch for its nodes, asked by TLS then");
    add(command, "--spool", options.spool, "the file of what the cluster is not known to have yet");
    add(command, "--spool-bytes", options.spool_bytes, "its most bytes; uploads are refused past them");
    add(command, "--answer", options.answer, "what has an upload when it is answered: replica (and spool), or spool")
        ->transform(CLI::CheckedTransformer(ways));
    add(command, "--answer-wait", words.answer_wait, "seconds for that replica");
    add(command, "--keep", words.keep, "seconds in the spool after both replicas had it");
    add(command, "--group-lines", options.group_lines, "the most lines of an insert")->check(CLI::PositiveNumber);
    add(command, "--group-ms", words.group_ms, "what comes in this time goes in one insert");
}

void add_store_words(CLI::App& command, StoreWords& words)
{
    add(command, "--store", words.store, g_store_sentence);
    add(command, "--secret", words.secret, "file of the secret that the collectors share");
    add_cluster_words(command, words.cluster);
}

store::ClusterOptions cluster_options(const ClusterWords& words, const std::string& secret)
{
    store::ClusterOptions options = words.options;
    options.answer_wait = std::chrono::seconds(words.answer_wait);
    options.keep = std::chrono::seconds(words.keep);
    options.group_time = std::chrono::milliseconds(words.group_ms);
    if (options.spool.empty()) {
        const std::string file = default_store();
        options.spool = file.substr(0, file.rfind('/') + 1) + "spool.db";
    }
    if (!secret.empty())
        options.secret = http::read_secret(secret);
    return options;
}

// CLI11 reads such a file itself for the main command alone, and has it count before variables.
void read_config(CLI::App& command, const std::string& file)
{
    if (file.empty())
        return;
    for (const CLI::ConfigItem& line : CLI::ConfigTOML().from_file(file)) {
        CLI::Option* option = line.parents.empty() ? command.get_option_no_throw("--" + line.name) : nullptr;
        if (option == nullptr || line.name == "config")
            throw CLI::ConfigError(file + ": there is no option " + line.fullname());
        if (option->count() != 0)
            continue;
        option->add_result(line.inputs);
        option->run_callback();
    }
}

std::string default_store()
{
    if (const char* folder = std::getenv("STATE_DIRECTORY"); folder != nullptr && *folder == '/')
        return std::string(folder) + "/events.db";
    return folder_of_state() + "/analytics/events.db";
}

std::string existing_store()
{
    return access(service_store, F_OK) == 0 ? service_store : default_store();
}

std::optional<int64_t> age_of(const std::string& text)
{
    static constexpr struct
    {
        char unit;
        int64_t seconds;
    } units[] = {{'d', 86400}, {'h', 3600}, {'m', 60}};
    uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    for (const auto& unit : units)
        if (read.ec == std::errc() && read.ptr + 1 == end && *read.ptr == unit.unit && number > 0)
            return number * unit.seconds;
    return std::nullopt;
}
