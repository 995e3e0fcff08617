#include "address.h"

#include "store/chain.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace store::clickhouse {

namespace {

constexpr std::string_view g_scheme = "clickhouse://";

Fault wrong(const std::string& what)
{
    return {FaultKind::other,
            "A cluster's address is clickhouse://USER@HOST:PORT,HOST:PORT+HOST:PORT/DATABASE: " + what + "."};
}

std::vector<std::string_view> split(std::string_view text, char between)
{
    std::vector<std::string_view> parts;
    for (size_t end; (end = text.find(between)) != std::string_view::npos; text.remove_prefix(end + 1))
        parts.push_back(text.substr(0, end));
    parts.push_back(text);
    return parts;
}

// Names that go into addresses and statements as they stand.
bool is_plain(std::string_view text, std::string_view further)
{
    for (char c : text) {
        bool is_word = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
        if (!is_word && further.find(c) == std::string_view::npos)
            return false;
    }
    return !text.empty();
}

Result<Node> parse_node(std::string_view text)
{
    size_t colon = text.rfind(':');
    bool has_port = colon != std::string_view::npos && text.find(']', colon) == std::string_view::npos;
    std::string_view host = text.substr(0, has_port ? colon : text.size()), port = text.substr(host.size());
    if (host.size() > 2 && host.front() == '[' && host.back() == ']' ? !is_plain(host.substr(1, host.size() - 2), ":.")
                                                                     : !is_plain(host, ".-"))
        return wrong("\"" + std::string(text) + "\" is no host");
    Node node{std::string(host), Node().port};
    if (port.empty())
        return node;
    auto read = std::from_chars(port.data() + 1, port.data() + port.size(), node.port);
    if (read.ec != std::errc() || read.ptr != port.data() + port.size() || node.port == 0)
        return wrong("\"" + std::string(text) + "\" has no port after its colon");
    return node;
}

Result<std::string> text_of_file(const std::string& path)
{
    std::ostringstream text;
    if (path.empty())
        return text.str();
    std::ifstream in(path, std::ios::binary);
    if (std::filesystem::is_directory(path) || !in || !(text << in.rdbuf()))
        return Fault{FaultKind::missing, path + " cannot be read."};
    return text.str();
}

} // namespace

std::string Node::name() const
{
    return host + ":" + std::to_string(port);
}

bool is_cluster(std::string_view address)
{
    return address.substr(0, g_scheme.size()) == g_scheme;
}

Result<Layout> parse_address(std::string_view address, const ClusterOptions& options)
{
    if (!is_cluster(address))
        return wrong("it begins otherwise");
    std::string_view rest = address.substr(g_scheme.size());
    size_t at = rest.find('@');
    Layout layout;
    layout.user = at == std::string_view::npos ? "default" : rest.substr(0, at);
    rest.remove_prefix(at == std::string_view::npos ? 0 : at + 1);
    size_t slash = rest.find('/');
    layout.database = slash == std::string_view::npos ? "analytics" : rest.substr(slash + 1);
    if (!is_plain(layout.user, "-.") || !is_plain(layout.database, ""))
        return wrong("user and database are made of letters, digits and _");
    for (std::string_view shard : split(rest.substr(0, slash), '+')) {
        layout.shards.emplace_back();
        for (std::string_view replica : split(shard, ',')) {
            auto node = parse_node(replica);
            if (!node)
                return node.fault();
            layout.shards.back().push_back(std::move(*node));
        }
    }
    auto password = text_of_file(options.password_file);
    if (!password)
        return password.fault();
    layout.password = password->substr(0, password->find_first_of("\r\n"));
    layout.ca_file = options.ca_file;
    layout.secret = options.secret;
    return layout;
}

uint32_t shard_of(std::string_view installation, size_t shards)
{
    return static_cast<uint32_t>(chain_begin(installation) % shards);
}

} // namespace store::clickhouse
