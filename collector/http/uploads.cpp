#include "uploads.h"

#include <chrono>
#include <sys/statvfs.h>
#include <thread>

namespace http {

using namespace std::chrono;

namespace {

int64_t now_ms()
{
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

constexpr size_t waiting_most = 4000;
const std::string key_path = "/u/";

} // namespace

/// What one upload needs on its way through the pool and the writer; it lives until the answer is given.
struct Uploads::Job
{
    Request request;
    Reply reply;
    intake::Encoding encoding = intake::Encoding::identity;
    std::optional<std::string> application; ///< the key's; none: any
    Uploads& uploads;
    uint64_t charged = 0;

    Job(Request&& taken, Reply&& answered, Uploads& owner)
        : request(std::move(taken)), reply(std::move(answered)), uploads(owner)
    {}
    ~Job() { uploads.m_memory -= charged; }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    /// Asks for memory beyond the body's own, which its connection has charged.
    bool charge(size_t bytes)
    {
        if ((uploads.m_memory += bytes) > uploads.m_limits.memory && charged + bytes < uploads.m_memory)
            return uploads.m_memory -= bytes, false;
        charged += bytes;
        return true;
    }
};

Uploads::Uploads(store::Writer& writer, Keys& keys, const UploadLimits& limits, std::string store_file)
    : m_writer(writer),
      m_keys(keys),
      m_limits(limits),
      m_store_file(std::move(store_file)),
      m_addresses(limits.rate_address),
      m_installations(limits.rate_installation),
      m_turns(limits.token_threads != 0 ? limits.token_threads : std::thread::hardware_concurrency(), waiting_most)
{}

bool Uploads::is_upload(const std::string& path)
{
    return path == "/events" || path.compare(0, 8, "/events/") == 0 || path.compare(0, key_path.size(), key_path) == 0;
}

namespace {

std::string text_of(const Request& head, const char* name)
{
    const std::string* value = head.field(name);
    return value != nullptr ? *value : std::string();
}

} // namespace

std::optional<Answer> Uploads::admit(const Request& head, uint64_t& body_limit)
{
    if (auto refused = look(head))
        return refuse(std::move(*refused));
    body_limit = m_limits.intake.body != 0 ? m_limits.intake.body : ~uint64_t{0};
    return std::nullopt;
}

void Uploads::refused(const Request&, const Answer& answer)
{
    refuse(answer);
}

Answer Uploads::cannot_store(store::FaultKind kind, const std::string& why)
{
    if (on_trouble)
        on_trouble("uploads are answered 503: " + why);
    return try_again(503, kind == store::FaultKind::full ? 60 : 5, "the store cannot take it now; try again later");
}

// Cheapest first: what a stranger can send without end must cost least.
std::optional<Answer> Uploads::look(const Request& head)
{
    if (auto refused = look_at_key(head))
        return refused;
    if (head.method != "POST") {
        Answer answer = sentence(405, "uploads come by POST");
        answer.fields.emplace_back("Allow", "POST");
        return answer;
    }
    intake::Encoding encoding;
    if (auto refused =
            intake::check_headers(text_of(head, "content-type"), text_of(head, "content-encoding"), encoding))
        return sentence(refused->status, refused->sentence);
    if (!m_addresses.take(head.client)) {
        if (head.is_loopback && on_loopback_limit)
            on_loopback_limit("--rate-address");
        return try_again(429, 2, "too many uploads from this address; try again later");
    }
    if (disk_is_full())
        return cannot_store(store::FaultKind::full, "The disk has less room than --disk-reserve.");
    if (const auto fault = m_writer.door())
        return cannot_store(fault->kind, fault->text);
    return std::nullopt;
}

namespace {

Answer unknown_key()
{
    return sentence(403, "this key is not known");
}

} // namespace

std::optional<Answer> Uploads::look_at_key(const Request& head)
{
    const bool has_key = head.path.compare(0, key_path.size(), key_path) == 0;
    if (has_key != m_keys.configured() || (!has_key && head.path != "/events"))
        return sentence(404, "there is nothing at this address");
    if (has_key && !m_keys.application(head.path.substr(key_path.size())))
        return unknown_key();
    return std::nullopt;
}

// Asked once a second: uploads beside each other share the answer.
bool Uploads::disk_is_full()
{
    if (m_limits.disk_reserve == 0 || m_store_file.empty())
        return false;
    const int64_t now = duration_cast<seconds>(steady_clock::now().time_since_epoch()).count();
    if (m_disk_looked.exchange(now) != now) {
        struct statvfs disk
        {};
        const std::string folder = m_store_file.substr(0, m_store_file.rfind('/') + 1);
        m_disk_full = statvfs(folder.empty() ? "." : folder.c_str(), &disk) == 0 &&
                      uint64_t{disk.f_bavail} * disk.f_frsize < m_limits.disk_reserve;
    }
    return m_disk_full;
}

Answer Uploads::refuse(Answer answer)
{
    switch (answer.status) {
    case 400:
        ++m_counts.refused_400;
        break;
    case 403:
        ++m_counts.refused_403;
        break;
    case 413:
        ++m_counts.refused_413;
        if (on_trouble)
            on_trouble("an upload was larger than --body-limit; hosts that send whole files come again with it");
        break;
    case 415:
        ++m_counts.refused_415;
        break;
    case 429:
        ++m_counts.refused_429;
        break;
    case 503:
        ++m_counts.refused_503;
        break;
    default:
        ++m_counts.refused_other;
    }
    return answer;
}

void Uploads::handle(Request request, Reply reply)
{
    auto job = std::make_shared<Job>(std::move(request), std::move(reply), *this);
    // A copy: as soon as the job is added, a thread of the pool may be at work on the request.
    const std::string client = job->request.client;
    if (!m_turns.add(client, [this, job] { take(*job); }))
        job->reply(refuse(try_again(503, 5, "too many uploads wait; try again later")));
}

void Uploads::take(Job& job)
{
    try {
        Request& request = job.request;
        intake::check_headers(text_of(request, "content-type"), text_of(request, "content-encoding"), job.encoding);
        if (m_keys.configured()) {
            job.application = m_keys.application(request.path.substr(key_path.size()));
            if (!job.application) // it was taken away while the body came
                return job.reply(refuse(unknown_key()));
            if (job.application == "*")
                job.application.reset();
        }
        const auto charge = [&job](size_t bytes) { return job.charge(bytes); };
        intake::Form form;
        intake::Refused refused = intake::unpack(request.body, job.encoding, m_limits.intake, charge);
        if (!refused && !job.charge(request.body.size()))
            refused = {503, "too many uploads are being read; try again later"};
        if (!refused)
            refused = intake::read_form(std::move(request.body), form);
        if (!refused && !m_installations.take(form.sender))
            refused = {429, "too many uploads of this installation; try again later"};
        if (!refused)
            refused = intake::check_token(form.sender, form.token);
        store::Upload upload;
        if (!refused)
            refused = intake::read_lines(std::move(form), job.application, now_ms(), m_limits.intake, upload);
        if (!refused)
            return submit(job, std::move(upload));
        const bool later = refused->status == 429 || refused->status == 503;
        job.reply(refuse(later ? try_again(refused->status, 5, refused->sentence)
                               : sentence(refused->status, refused->sentence)));
    } catch (const std::exception&) { // memory ran out: the host keeps its events and comes again
        job.reply(refuse(try_again(503, 30, "there is no memory for this upload; try again later")));
    }
}

void Uploads::submit(Job& job, store::Upload upload)
{
    if (const auto fault = m_writer.door_for(upload))
        return job.reply(refuse(cannot_store(fault->kind, fault->text)));
    auto done = [this, reply = job.reply](const store::Result<store::Receipt>& receipt) { reply(answer_to(receipt)); };
    if (!m_writer.submit(std::move(upload), std::move(done)))
        job.reply(refuse(try_again(503, 5, "too many uploads wait to be stored; try again later")));
}

Answer Uploads::answer_to(const store::Result<store::Receipt>& receipt)
{
    if (!receipt)
        return refuse(cannot_store(receipt.fault().kind, receipt.fault().text));
    ++m_counts.taken;
    m_counts.events += receipt->events;
    m_counts.rejects += receipt->rejects;
    m_counts.known += receipt->known;
    m_counts.last_at = now_ms();
    if (on_stored)
        on_stored();
    return sentence(200, "taken: " + std::to_string(receipt->events) + " events");
}

} // namespace http
