// Texts and the ids that rows know them by, for the side that writes: what it has met stays in memory.
#pragma once

#include "database.h"

#include "store/figures.h"

#include <unordered_map>
#include <unordered_set>

namespace store::sqlite {

/// The name ids that are no text.
constexpr int64_t g_null_name = 0, g_all_names = -1;

constexpr size_t g_most_names = 10000;  // of an application; likewise versions, and applications
constexpr size_t g_most_kinds = 100000; // pairs of these that rollups tell apart
constexpr size_t g_most_keys = 200;     // of an application's name
constexpr size_t g_most_values = 1000;  // of a key

/// Application, version and name of an event.
struct Kind
{
    int64_t id = 0;
    int64_t application = 0, version = 0; ///< text ids, as the event has them
    /// As rollups count it: the kind itself, or one with "(other)" in place of what is past a limit.
    int64_t counted = 0;
    int64_t counted_application = 0, counted_name = 0;
    int64_t all_names = 0; ///< the counted kind's application and version, with g_all_names
};

struct TextHash
{
    using is_transparent = void;
    size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};
template <class Value>
using TextMap = std::unordered_map<std::string, Value, TextHash, std::equal_to<>>;

/// A key of a name's events and the values that it had.
struct KnownProperty
{
    int64_t id = 0;
    TextMap<uint32_t> values; ///< by type and text: the value's number, from 1
};

class Dictionary
{
public:
    explicit Dictionary(Database& database);

    /// Forgets what is in memory: another process wrote, a transaction was given up, or it is too much.
    void clear();
    /// Clears when more is remembered than some ten megabytes.
    void trim();

    int64_t text(std::string_view text);
    int64_t installation(std::string_view text);
    const Kind& kind(const Event& event);
    /// @param name  a text id, g_null_name or g_all_names
    /// @param key   none: what is past a limit
    KnownProperty& property(int64_t application, int64_t name, std::optional<std::string_view> key);
    /// The number of a value; 0 past the limit.
    uint32_t value(KnownProperty& property, const Value& value);

private:
    struct KeySet
    {
        TextMap<KnownProperty> keys;
        KnownProperty other; ///< for keys past the limit; without an id until it is needed
        bool is_loaded = false;
    };
    /// Names and versions of an application that have rollups of their own.
    struct Counted
    {
        std::unordered_set<int64_t> names, versions;
    };

    int64_t find_or_add(Statement& find, Statement& add, std::string_view text);
    int64_t find_or_add_kind(int64_t application, int64_t version, int64_t name, int64_t& counted);
    void make_kind(Kind& kind, int64_t name);
    void put_text(std::string_view text);
    void load_counted();
    void load_keys(KeySet& set, int64_t application, int64_t name);
    void load_values(KnownProperty& property);
    void add_key(KnownProperty& property, int64_t application, int64_t name, std::optional<std::string_view> key);

    Database& m_database;
    Statement m_find_text, m_add_text, m_find_installation, m_add_installation, m_find_kind, m_add_kind, m_count_kind,
        m_add_property, m_add_value;
    TextMap<int64_t> m_texts, m_installations;
    TextMap<Kind> m_kinds;
    std::string m_kind_key, m_value_key; // memory for what is looked up
    std::unordered_map<int64_t, Counted> m_counted;
    size_t m_counted_kinds = 0;
    bool m_is_counted_loaded = false;
    std::map<std::pair<int64_t, int64_t>, KeySet> m_properties;
    size_t m_values = 0;
};

/// A value as a key of KnownProperty::values.
std::string value_key(ValueType type, std::string_view text);

} // namespace store::sqlite
