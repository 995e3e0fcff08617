// The connections of one process that ask questions: a deletion ends what they are at.
#pragma once

#include "database.h"

#include <mutex>
#include <set>

namespace store::sqlite {

class Readers
{
public:
    void add(Database& database)
    {
        std::lock_guard hold(m_lock);
        m_databases.insert(&database);
    }
    void remove(Database& database)
    {
        std::lock_guard hold(m_lock);
        m_databases.erase(&database);
    }
    void interrupt()
    {
        std::lock_guard hold(m_lock);
        for (Database* database : m_databases)
            database->interrupt();
    }

private:
    std::mutex m_lock;
    std::set<Database*> m_databases;
};

} // namespace store::sqlite
