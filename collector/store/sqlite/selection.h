// Which rows a query means: kinds by their ids, the installation, the period; and a walk over those events.
#pragma once

#include "rollups.h"

namespace store::sqlite {

/// Application, version and name of a kind, as text ids (or g_null_name, g_all_names).
struct KindParts
{
    int64_t application = 0, version = 0, name = 0;
};

class Selection
{
public:
    /// Must be made within the question's transaction.
    Selection(Database& database, const Query& query);

    /// The parts of a kind that matches the filters; null for every other one.
    const KindParts* find(int64_t kind) const;
    /// Rollups do not know what is asked for: only rows do.
    bool needs_rows() const { return m_needs_rows; }
    bool has_name() const { return m_has_name; }
    /// The filtered application; 0 when all are meant.
    int64_t application() const { return m_application; }
    /// The filtered installation; 0 when all are meant, -1 for one that is not there.
    int64_t installation() const { return m_installation; }
    /// The property that events must carry. Only rows tell of it.
    const std::optional<std::pair<std::string, std::string>>& fact() const { return m_fact; }

    /// The period, within the years that a line's time can have.
    Seconds from, to;
    /// The whole UTC days in it; none when first_day >= end_day.
    int64_t first_day, end_day;
    /// Calls `use(from, to)` for what of the period lies before and behind its whole days.
    template <class Use>
    void for_each_edge(Use&& use) const
    {
        Seconds first = std::min(to, first_day * 86400), last = std::max(first, end_day * 86400);
        if (from < first)
            use(from, first);
        if (last < to)
            use(last, to);
    }

private:
    std::unordered_map<int64_t, KindParts> m_kinds;
    bool m_needs_rows = false, m_has_name = false;
    int64_t m_application = 0, m_installation = 0;
    std::optional<std::pair<std::string, std::string>> m_fact;
};

/// An event on the way. `members` only where they are asked for.
struct EventOnTheWay
{
    int64_t id = 0, installation = 0;
    const KindParts* kind = nullptr;
    Seconds logged_at = 0;
    std::string_view members;
};

/// Calls `use(const EventOnTheWay&)` for each event of the selection that was logged in [from, to). In no order.
using UseEvent = std::function<void(const EventOnTheWay&)>;
void for_each_event(Database& database, const Selection& selection, Seconds from, Seconds to, bool with_members,
                    const UseEvent& use);

/// Texts by id, looked up once.
class Texts
{
public:
    explicit Texts(Database& database);
    const std::string& operator[](int64_t id);
    /// None for the null name.
    std::optional<std::string> name(int64_t id);

private:
    Statement m_find;
    std::unordered_map<int64_t, std::string> m_texts;
};

} // namespace store::sqlite
