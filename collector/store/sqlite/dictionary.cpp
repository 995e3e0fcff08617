#include "dictionary.h"

#include <sqlite3.h>

namespace store::sqlite {

namespace {

constexpr size_t g_most_texts = 100000; // in memory, of each map

// Within the limit, or in the set already.
bool admit(std::unordered_set<int64_t>& set, int64_t id, size_t most)
{
    return set.count(id) != 0 || (set.size() < most && set.insert(id).second);
}

} // namespace

std::string value_key(ValueType type, std::string_view text)
{
    std::string key(1, static_cast<char>('0' + static_cast<int>(type)));
    return key.append(text);
}

Dictionary::Dictionary(Database& database)
    : m_database(database),
      m_find_text(database, "SELECT id FROM texts WHERE text=?"),
      m_add_text(database, "INSERT INTO texts(text) VALUES(?)"),
      m_find_installation(database, "SELECT id FROM installations WHERE text=?"),
      m_add_installation(database, "INSERT INTO installations(text) VALUES(?)"),
      m_find_kind(database, "SELECT id, counted FROM kinds WHERE application=? AND version=? AND name=?"),
      m_add_kind(database, "INSERT INTO kinds(application, version, name, counted) VALUES(?, ?, ?, 0)"),
      m_count_kind(database, "UPDATE kinds SET counted=?2 WHERE id=?1"),
      m_add_property(database, "INSERT INTO properties(application, name, key) VALUES(?, ?, ?)"),
      m_add_value(database, "INSERT INTO property_values(property, number, type, text) VALUES(?, ?, ?, ?)")
{}

void Dictionary::clear()
{
    m_texts.clear();
    m_installations.clear();
    m_kinds.clear();
    m_counted.clear();
    m_is_counted_loaded = false;
    m_properties.clear();
    m_values = 0;
}

void Dictionary::trim()
{
    if (m_texts.size() > g_most_texts || m_installations.size() > g_most_texts || m_kinds.size() > g_most_texts ||
        m_values > g_most_texts)
        clear();
}

int64_t Dictionary::find_or_add(Statement& find, Statement& add, std::string_view text)
{
    if (find.with(text).step())
        return find.integer(0);
    add.with(text).run();
    return sqlite3_last_insert_rowid(m_database.handle());
}

int64_t Dictionary::text(std::string_view text)
{
    auto known = m_texts.find(text);
    if (known == m_texts.end())
        known = m_texts.emplace(text, find_or_add(m_find_text, m_add_text, text)).first;
    return known->second;
}

int64_t Dictionary::installation(std::string_view text)
{
    auto known = m_installations.find(text);
    if (known == m_installations.end())
        known = m_installations.emplace(text, find_or_add(m_find_installation, m_add_installation, text)).first;
    return known->second;
}

const Kind& Dictionary::kind(const Event& event)
{
    m_kind_key.clear();
    put_text(event.application);
    put_text(event.version);
    m_kind_key += event.name ? '+' : '-';
    m_kind_key += event.name.value_or(std::string_view());
    auto known = m_kinds.find(m_kind_key);
    if (known != m_kinds.end())
        return known->second;
    Kind kind;
    kind.application = text(event.application);
    kind.version = text(event.version);
    make_kind(kind, event.name ? text(*event.name) : g_null_name);
    return m_kinds.emplace(m_kind_key, kind).first->second;
}

// The length before the text, so that no two pairs of texts give one key.
void Dictionary::put_text(std::string_view text)
{
    size_t size = text.size();
    m_kind_key.append(reinterpret_cast<const char*>(&size), sizeof size).append(text);
}

void Dictionary::make_kind(Kind& kind, int64_t name)
{
    kind.id = find_or_add_kind(kind.application, kind.version, name, kind.counted);
    int64_t application = kind.application, version = kind.version, ignored = 0;
    kind.counted_name = name;
    if (kind.counted == 0) {
        load_counted();
        bool has_room = m_counted_kinds < g_most_kinds;
        int64_t other = text(g_other);
        if (!has_room || (m_counted.count(application) == 0 && m_counted.size() >= g_most_names))
            application = other;
        Counted& counted = m_counted[application];
        version = has_room && admit(counted.versions, version, g_most_names) ? version : other;
        kind.counted_name = has_room && admit(counted.names, name, g_most_names) ? name : other;
        kind.counted = find_or_add_kind(application, version, kind.counted_name, ignored);
        m_counted_kinds += kind.counted == kind.id;
        m_count_kind.with(kind.id, kind.counted).run();
        if (kind.counted != kind.id)
            m_count_kind.with(kind.counted, kind.counted).run();
    } else if (kind.counted != kind.id) {
        Statement parts(m_database, "SELECT application, version, name FROM kinds WHERE id=?");
        if (parts.with(kind.counted).step()) {
            application = parts.integer(0);
            version = parts.integer(1);
            kind.counted_name = parts.integer(2);
        }
    }
    kind.counted_application = application;
    kind.all_names = find_or_add_kind(application, version, g_all_names, ignored);
}

int64_t Dictionary::find_or_add_kind(int64_t application, int64_t version, int64_t name, int64_t& counted)
{
    if (m_find_kind.with(application, version, name).step()) {
        counted = m_find_kind.integer(1);
        return m_find_kind.integer(0);
    }
    counted = 0;
    m_add_kind.with(application, version, name).run();
    return sqlite3_last_insert_rowid(m_database.handle());
}

void Dictionary::load_counted()
{
    if (m_is_counted_loaded)
        return;
    m_is_counted_loaded = true;
    m_counted_kinds = 0;
    Statement rows(m_database, "SELECT application, version, name FROM kinds WHERE counted=id");
    while (rows.step()) {
        Counted& counted = m_counted[rows.integer(0)];
        counted.versions.insert(rows.integer(1));
        counted.names.insert(rows.integer(2));
        ++m_counted_kinds;
    }
}

KnownProperty& Dictionary::property(int64_t application, int64_t name, std::optional<std::string_view> key)
{
    KeySet& set = m_properties[{application, name}];
    if (!set.is_loaded)
        load_keys(set, application, name);
    auto known = key ? set.keys.find(*key) : set.keys.end();
    if (known != set.keys.end())
        return known->second;
    if (set.keys.size() >= g_most_keys)
        key.reset();
    KnownProperty& property = key ? set.keys[std::string(*key)] : set.other;
    if (property.id == 0)
        add_key(property, application, name, key);
    return property;
}

void Dictionary::add_key(KnownProperty& property, int64_t application, int64_t name,
                         std::optional<std::string_view> key)
{
    m_add_property.with(application, name, key).run();
    property.id = sqlite3_last_insert_rowid(m_database.handle());
}

void Dictionary::load_keys(KeySet& set, int64_t application, int64_t name)
{
    set.is_loaded = true;
    Statement rows(m_database, "SELECT id, key FROM properties WHERE application=? AND name=?");
    rows.with(application, name);
    while (rows.step()) {
        KnownProperty& property = rows.is_null(1) ? set.other : set.keys[std::string(rows.text(1))];
        property.id = rows.integer(0);
        load_values(property);
    }
}

void Dictionary::load_values(KnownProperty& property)
{
    Statement rows(m_database, "SELECT number, type, text FROM property_values WHERE property=?");
    rows.with(property.id);
    while (rows.step()) {
        property.values.emplace(value_key(static_cast<ValueType>(rows.integer(1)), rows.text(2)),
                                static_cast<uint32_t>(rows.integer(0)));
        ++m_values;
    }
}

uint32_t Dictionary::value(KnownProperty& property, const Value& value)
{
    m_value_key.assign(1, static_cast<char>('0' + static_cast<int>(value.type)));
    m_value_key.append(value.text);
    auto known = property.values.find(m_value_key);
    if (known != property.values.end())
        return known->second;
    if (property.values.size() >= g_most_values)
        return 0;
    uint32_t number = static_cast<uint32_t>(property.values.size() + 1);
    m_add_value.with(property.id, int64_t(number), int64_t(value.type), value.text).run();
    property.values.emplace(m_value_key, number);
    ++m_values;
    return number;
}

} // namespace store::sqlite
