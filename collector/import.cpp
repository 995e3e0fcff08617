#include "import.h"

#include "intake/intake.h"

#include <chrono>
#include <filesystem>
#include <fstream>

namespace commands {
namespace {

using store::ChainKey;
using store::TextEnd;

constexpr size_t g_part = 4 * 1024 * 1024; // bytes of text that are read at a time
constexpr int g_attempts = 10;             // while others write texts of the same sender

template <class Value>
Value value_of(store::Result<Value> result)
{
    if (!result)
        throw Failure(result.fault().text);
    return std::move(*result);
}

/// A file's whole lines, some megabytes at a time.
class Parts
{
public:
    explicit Parts(const std::string& file) : m_file(file), m_in(file, std::ios::binary)
    {
        if (!m_in || std::filesystem::is_directory(file))
            throw Failure(file + " cannot be read");
    }

    /// The next lines; the file's last one also when it has no end. Empty at the file's end.
    std::string next()
    {
        std::string text = std::move(m_rest);
        m_rest.clear();
        for (;;) {
            size_t size = text.size();
            text.resize(size + g_part);
            m_in.read(text.data() + size, g_part);
            text.resize(size + static_cast<size_t>(m_in.gcount()));
            if (m_in.bad())
                throw Failure(m_file + " cannot be read");
            size_t end = text.rfind('\n');
            if (m_in && end == text.npos)
                continue;
            if (m_in) {
                m_rest = text.substr(end + 1);
                text.resize(end + 1);
            }
            return text;
        }
    }

private:
    const std::string m_file;
    std::ifstream m_in;
    std::string m_rest; ///< the beginning of a line
};

template <class Use>
void for_each_line(std::string_view text, Use&& use)
{
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (!line.empty())
            use(line);
    }
}

store::Upload read(std::string&& text, const std::string& sender)
{
    using namespace std::chrono;
    intake::Form form;
    form.data = std::move(text);
    form.sender = sender;
    store::Upload upload;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    intake::read_lines(std::move(form), std::nullopt, now, {0, 0}, upload);
    return upload;
}

std::string sender_of(const std::string& file)
{
    Parts parts(file);
    for (std::string text = parts.next(); !text.empty(); text = parts.next())
        if (const store::Upload upload = read(std::move(text), ""); !upload.events.empty())
            return std::string(upload.events.front().installation);
    throw Failure(file + ": No line of the file is an event.");
}

/// A place between two lines of a file, and how it is known.
struct Place
{
    uint32_t lines = 0;
    ChainKey key = 0;             ///< of the line before
    std::optional<TextEnd> after; ///< the end of an earlier text that the file begins with
};

/// How far the file is known by the ends of earlier texts.
Place known_part(const std::string& file, const std::string& sender, const std::vector<TextEnd>& ends)
{
    uint32_t number = 0, last = 0;
    for (const TextEnd& end : ends)
        last = std::max(last, end.lines);
    ChainKey key = store::chain_begin(sender);
    Place known{0, key, {}};
    Parts parts(file);
    for (std::string text; number < last && !(text = parts.next()).empty();)
        for_each_line(text, [&](std::string_view line) {
            const ChainKey before = key;
            key = store::chain_next(before, line);
            ++number;
            for (const TextEnd& end : ends) {
                if (end.lines != number || !store::begins_with(end, before, line))
                    continue;
                if (end.size == line.size())
                    known = {number, key, end};
                else if (known.lines < number)
                    known = {number - 1, before, {}};
            }
        });
    return known;
}

/// Takes the first lines away, as far as there are that many, and says how many were.
uint32_t skip(std::string& text, uint32_t lines)
{
    uint32_t skipped = 0;
    size_t at = 0;
    for_each_line(text, [&](std::string_view line) {
        if (skipped < lines) {
            ++skipped;
            at = static_cast<size_t>(line.data() + line.size() - text.data());
        }
    });
    text.erase(0, at);
    return skipped;
}

/// One file on its way into the store.
class Import
{
public:
    Import(store::Writing& writing, const std::string& file, const std::function<void(uint64_t)>& report)
        : m_writing(writing), m_file(file), m_report(report), m_sender(sender_of(file))
    {}

    store::Receipt run()
    {
        for (int attempt = 0; attempt < g_attempts; ++attempt)
            if (attempt_all())
                return m_receipt;
        throw Failure(m_file + ": its installation sends all the time; import it later");
    }

private:
    /// False when another text of the sender came meanwhile.
    bool attempt_all()
    {
        const std::vector<TextEnd> ends = value_of(m_writing.ends(m_sender));
        m_at = known_part(m_file, m_sender, ends);
        m_latest = ends.empty() ? std::nullopt : std::optional(ends.back());
        m_goes_on = false;
        m_receipt.known = m_at.lines - m_receipt.events - m_receipt.rejects;
        uint32_t to_skip = m_at.lines;
        uint64_t bytes = 0;
        Parts parts(m_file);
        for (std::string text; !(text = parts.next()).empty(); m_report(bytes)) {
            bytes += text.size();
            to_skip -= skip(text, to_skip);
            if (text.find_first_not_of('\n') != text.npos && !write(read(std::move(text), m_sender)))
                return false;
        }
        return m_goes_on || !m_at.after || write(store::Upload()); // that the file was seen again, when nothing was new
    }

    bool write(store::Upload upload)
    {
        upload.sender = m_sender;
        upload.first_line = m_at.lines;
        TextEnd end = m_at.after.value_or(TextEnd());
        for (store::Line& line : upload.lines) {
            line.key = store::chain_next(m_at.key, line.text);
            end = {++m_at.lines, static_cast<uint32_t>(line.text.size()), m_at.key, line.key};
            m_at.key = line.key;
        }
        upload.part = {end, m_latest, m_goes_on};
        const store::Upload* const one[] = {&upload};
        const auto receipts = m_writing.write(one, {});
        if (!receipts && receipts.fault().kind == store::FaultKind::changed)
            return false;
        const store::Receipt receipt = value_of(receipts).at(0);
        m_receipt.events += receipt.events;
        m_receipt.rejects += receipt.rejects;
        m_receipt.known += receipt.known;
        m_latest = end;
        return m_goes_on = true;
    }

    store::Writing& m_writing;
    const std::string& m_file;
    const std::function<void(uint64_t)>& m_report;
    const std::string m_sender;
    Place m_at;
    std::optional<TextEnd> m_latest;
    bool m_goes_on = false;
    store::Receipt m_receipt;
};

} // namespace

store::Receipt import_log(store::Writing& writing, const std::string& file,
                          const std::function<void(uint64_t bytes)>& report)
{
    return Import(writing, file, report).run();
}

} // namespace commands
