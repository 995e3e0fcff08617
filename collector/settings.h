/// @file
/// What `serve` can be told: by options, by variables of the environment, by a file.
#pragma once

#include "http/server.h"
#include "http/uploads.h"
#include "store/store.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

/// What every command is told about a store on a cluster.
struct ClusterWords
{
    store::ClusterOptions options;
    unsigned answer_wait = 5, keep = 600, group_ms = 250;
};

struct Settings
{
    std::string store;
    std::string listen = "127.0.0.1:8080", page;
    std::string keys, users, tokens, secret;
    std::string tls_certificate, tls_key;
    std::string log = "text";
    std::string config;
    std::string retain, retain_rollups;
    std::vector<std::string> proxies, hosts;
    http::ServerLimits server;
    http::UploadLimits uploads;
    ClusterWords cluster;
    unsigned header_seconds = 10;
    unsigned drain_seconds = 0;
};

/// Adds the options of `serve` to a command. Each is also ANALYTICS_COLLECTOR_NAME in the environment, NAME in capitals
/// with _ for -, and a line of the file that --config names; an option counts before a variable, that before the file.
void add_settings(CLI::App& command, Settings& settings);
/// Adds those of a store on a cluster alone.
void add_cluster_words(CLI::App& command, ClusterWords& words);
/// What they say, for the store.
/// @param secret  the file of --secret; may be empty. @throws std::exception with a sentence when it cannot be read
store::ClusterOptions cluster_options(const ClusterWords& words, const std::string& secret);

/// Which store a command means that is no server.
struct StoreWords
{
    std::string store, secret;
    ClusterWords cluster;
};
void add_store_words(CLI::App& command, StoreWords& words);

/// Reads that file, when one is named, for the options that are not set yet. @throws CLI::ParseError
void read_config(CLI::App& command, const std::string& file);

/// The store's file where none is named: that of the service when its folder says so ($STATE_DIRECTORY), else
/// $XDG_STATE_HOME/analytics/events.db, $HOME/.local/state standing in for that variable.
std::string default_store();
/// The store that a command uses where none is named: the service's when there is one, else default_store().
std::string existing_store();

/// "90d", "12h", "30m" as seconds; none for anything else.
std::optional<int64_t> age_of(const std::string& text);
