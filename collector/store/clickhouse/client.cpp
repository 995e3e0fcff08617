#include "client.h"

#include <algorithm>
#include <charconv>
#include <mutex>

#include <curl/curl.h>

namespace store::clickhouse {

namespace {

constexpr auto g_connect = std::chrono::milliseconds(2000);

// What stands before the number in every version.
constexpr std::string_view g_code = "Code: ";

// What the transfer's callbacks need.
struct Transfer
{
    const Bounds& bounds;
    std::string body;
    bool is_stopped = false;
};

size_t take(char* bytes, size_t, size_t count, void* context)
{
    auto& transfer = *static_cast<Transfer*>(context);
    if (transfer.body.size() + count > transfer.bounds.answer)
        return 0;
    transfer.body.append(bytes, count);
    return count;
}

int look(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    auto& transfer = *static_cast<Transfer*>(context);
    transfer.is_stopped = transfer.bounds.stop != nullptr && *transfer.bounds.stop;
    return transfer.is_stopped;
}

std::chrono::milliseconds time_of(const Bounds& bounds)
{
    if (bounds.until == Clock::time_point::max())
        return bounds.time;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(bounds.until - Clock::now());
    return std::clamp(left, std::chrono::milliseconds(1), bounds.time);
}

std::string escaped(std::string_view text)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : text) {
        bool is_plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
        if (is_plain)
            out += static_cast<char>(c);
        else
            out += {'%', digits[c >> 4], digits[c & 15]};
    }
    return out;
}

// The first line of an answer, short enough for a person.
std::string sentence(std::string_view text)
{
    return std::string(text.substr(0, std::min(text.find('\n'), size_t(300))));
}

} // namespace

Fault fault_of(const Trouble& trouble)
{
    switch (trouble.kind) {
    case Trouble::Kind::late:
        return {FaultKind::late, trouble.text};
    case Trouble::Kind::unreachable:
        return {FaultKind::busy, trouble.text};
    default:
        return {FaultKind::other, trouble.text};
    }
}

int code_of(std::string_view answer)
{
    int code = 0;
    if (answer.substr(0, g_code.size()) == g_code)
        std::from_chars(answer.data() + g_code.size(), answer.data() + answer.size(), code);
    return code;
}

std::string quoted(std::string_view text)
{
    std::string out = "'";
    for (char c : text) {
        if (c == '\\' || c == '\'')
            out += '\\';
        if (c == '\0')
            out += "\\0";
        else
            out += c;
    }
    return out += '\'';
}

struct Client::Connection
{
    Connection(const Node& where, const Layout& layout)
        : node(where), address((layout.ca_file.empty() ? "http://" : "https://") + where.name() + "/?")
    {
        static std::once_flag once;
        std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
        curl = curl_easy_init();
        if (curl == nullptr)
            throw std::bad_alloc();
        if (!layout.database.empty())
            address += "database=" + escaped(layout.database) + "&";
        add_header("X-ClickHouse-User: " + layout.user);
        if (!layout.password.empty())
            add_header("X-ClickHouse-Key: " + layout.password);
        add_header("Expect:"); // libcurl would wait a second for a node that does not know it
        set_up(layout);
    }
    ~Connection()
    {
        curl_slist_free_all(headers);
        curl_easy_cleanup(curl);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void add_header(const std::string& header) { headers = curl_slist_append(headers, header.c_str()); }

    void set_up(const Layout& layout)
    {
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_PROXY, ""); // none of the environment's
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, long(g_connect.count()));
        curl_easy_setopt(curl, CURLOPT_TCP_NODELAY, 1L);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, take);
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, look);
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);
        if (!layout.ca_file.empty()) {
            curl_easy_setopt(curl, CURLOPT_CAINFO, layout.ca_file.c_str());
            curl_easy_setopt(curl, CURLOPT_CAPATH, nullptr); // no others vouch for them
        }
    }

    // The settings that bound a question, for the node: both versions know them.
    std::string settings(const Bounds& bounds) const
    {
        auto seconds = std::chrono::ceil<std::chrono::seconds>(time_of(bounds)).count();
        std::string text = "max_execution_time=" + std::to_string(std::max<int64_t>(seconds, 1));
        if (bounds.memory != 0)
            text += "&max_memory_usage=" + std::to_string(bounds.memory);
        if (bounds.spill != 0)
            text += "&max_bytes_before_external_group_by=" + std::to_string(bounds.spill);
        return text;
    }

    Trouble trouble(Trouble::Kind kind, const std::string& what, int code = 0) const
    {
        return {kind, code, node.name() + ": " + what};
    }

    Trouble trouble_of(CURLcode result, const Transfer& transfer) const
    {
        if (transfer.is_stopped || result == CURLE_OPERATION_TIMEDOUT)
            return trouble(Trouble::Kind::late, transfer.is_stopped ? "stopped" : "no answer in time");
        if (result == CURLE_WRITE_ERROR)
            return trouble(Trouble::Kind::refused, "the answer is too large");
        bool is_certificate = result == CURLE_PEER_FAILED_VERIFICATION || result == CURLE_SSL_CACERT_BADFILE;
        return trouble(is_certificate ? Trouble::Kind::refused : Trouble::Kind::unreachable,
                       *error != '\0' ? error : curl_easy_strerror(result));
    }

    // `prepare` gives the handle what is to be sent.
    template <class Prepare>
    Answer<std::string> send(const std::string& query, const Bounds& bounds, Prepare&& prepare)
    {
        if (bounds.until <= Clock::now())
            return trouble(Trouble::Kind::late, "no time is left");
        Transfer transfer{bounds, {}};
        *error = '\0';
        curl_easy_setopt(curl, CURLOPT_URL, (address + query + settings(bounds)).c_str());
        curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, long(time_of(bounds).count()));
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);
        prepare();
        CURLcode result = curl_easy_perform(curl);
        if (result != CURLE_OK)
            return trouble_of(result, transfer);
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        if (status == 200)
            return std::move(transfer.body);
        if (int code = code_of(transfer.body))
            return trouble(Trouble::Kind::code, sentence(transfer.body), code);
        return trouble(Trouble::Kind::refused, "status " + std::to_string(status) + ", " + sentence(transfer.body));
    }

    Answer<std::string> post(const std::string& query, std::string_view body, const Bounds& bounds)
    {
        return send(query, bounds, [&] {
            curl_easy_setopt(curl, CURLOPT_POST, 1L);
            curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
            curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
        });
    }

    const Node node;
    std::string address;
    CURL* curl = nullptr;
    curl_slist* headers = nullptr;
    char error[CURL_ERROR_SIZE] = "";
};

Client::Client(const Node& node, const Layout& layout) : m_spConnection(std::make_unique<Connection>(node, layout)) {}
Client::~Client() = default;
Client::Client(Client&&) noexcept = default;
Client& Client::operator=(Client&&) noexcept = default;

const Node& Client::node() const
{
    return m_spConnection->node;
}

// Without wait_end_of_query a fault may come in the middle of an answer that began with 200.
Answer<std::string> Client::ask(const std::string& sql, const Bounds& bounds)
{
    return m_spConnection->post("wait_end_of_query=1&", sql, bounds);
}

Answer<std::string> Client::ask_with(const std::string& sql, const External& table, const Bounds& bounds)
{
    std::string query = "wait_end_of_query=1&" + table.name + "_format=RowBinary&" + table.name +
                        "_structure=" + escaped(table.structure) + "&query=" + escaped(sql) + "&";
    CURL* curl = m_spConnection->curl;
    std::unique_ptr<curl_mime, decltype(&curl_mime_free)> form(curl_mime_init(curl), curl_mime_free);
    curl_mimepart* part = curl_mime_addpart(form.get());
    curl_mime_name(part, table.name.c_str());
    curl_mime_filename(part, table.name.c_str());
    curl_mime_data(part, table.rows.data(), table.rows.size());
    auto answer = m_spConnection->send(query, bounds, [&] { curl_easy_setopt(curl, CURLOPT_MIMEPOST, form.get()); });
    curl_easy_setopt(curl, CURLOPT_MIMEPOST, nullptr);
    return answer;
}

Answer<Done> Client::run(const std::string& sql, const Bounds& bounds)
{
    auto answer = m_spConnection->post("", sql, bounds);
    return answer ? Answer<Done>(Done()) : Answer<Done>(answer.fault());
}

Answer<Done> Client::insert(const std::string& table, const std::string& columns, std::string_view rows,
                            const Bounds& bounds)
{
    std::string sql = "INSERT INTO " + table + " (" + columns + ") FORMAT RowBinary";
    auto answer = m_spConnection->post("insert_deduplicate=0&query=" + escaped(sql) + "&", rows, bounds);
    return answer ? Answer<Done>(Done()) : Answer<Done>(answer.fault());
}

} // namespace store::clickhouse
