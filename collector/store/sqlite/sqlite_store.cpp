#include "sqlite_store.h"

#include "file.h"
#include "reading.h"
#include "schema.h"
#include "writing.h"

#include <filesystem>

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

namespace store::sqlite {

namespace {

constexpr int g_backup_pages = 256; // in a step, 2 MiB

class SqliteStore : public Store
{
public:
    SqliteStore(std::string path, const OpenOptions& options, Descriptor serving)
        : m_path(std::move(path)),
          m_options(options),
          m_serving(std::move(serving)),
          m_spReaders(std::make_shared<Readers>())
    {}

    Result<std::unique_ptr<Writing>> writing() override
    {
        return std::unique_ptr<Writing>(std::make_unique<SqliteWriting>(m_path, m_options.busy_wait, m_spReaders));
    }

    Result<std::unique_ptr<Reading>> reading() override
    {
        return std::unique_ptr<Reading>(std::make_unique<SqliteReading>(m_path, m_spReaders));
    }

    Result<Done> backup(const std::string& path, const std::function<bool(const Progress&)>& report) override;

private:
    std::string m_path;
    OpenOptions m_options;
    Descriptor m_serving;
    std::shared_ptr<Readers> m_spReaders;
};

// The source's open transaction keeps it as it is, so writers beside it do not make the copy begin anew.
bool copy(Database& from, Database& to, const std::function<bool(const Progress&)>& report)
{
    from.run("BEGIN");
    from.number("SELECT count(*) FROM counters");
    sqlite3_backup* backup = sqlite3_backup_init(to.handle(), "main", from.handle(), "main");
    bool goes_on = backup != nullptr;
    int code = SQLITE_OK;
    while (goes_on && code == SQLITE_OK) {
        code = sqlite3_backup_step(backup, g_backup_pages);
        auto total = static_cast<uint64_t>(sqlite3_backup_pagecount(backup));
        Progress progress{total - static_cast<uint64_t>(sqlite3_backup_remaining(backup)), total, code == SQLITE_DONE};
        goes_on = !report || report(progress);
    }
    sqlite3_backup_finish(backup);
    from.run("ROLLBACK");
    return goes_on && code == SQLITE_DONE;
}

Result<Done> SqliteStore::backup(const std::string& path, const std::function<bool(const Progress&)>& report)
{
    Descriptor made(::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600));
    if (made.number() < 0)
        return system_fault(path);
    Database from, to;
    from.open(m_path, Access::read, m_options.busy_wait);
    to.open(path, Access::write, m_options.busy_wait);
    bool is_whole = from.ok() && to.ok() && copy(from, to, report);
    if (is_whole && from.ok() && to.ok() && fsync(made.number()) == 0)
        return Done();
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
    if (!from.ok())
        return from.take_fault();
    return to.ok() ? Fault{FaultKind::other, "The copy was not finished."} : to.take_fault();
}

} // namespace

Result<std::unique_ptr<Store>> open(const std::string& path, const OpenOptions& options)
{
    bool makes = options.opening != Opening::use;
    if (auto fault = find_file(path, makes))
        return *fault;
    Descriptor serving;
    if (options.opening == Opening::serve) {
        auto locked = lock_serving(path);
        if (!locked)
            return locked.fault();
        serving = std::move(*locked);
    }
    Database database;
    database.open(path, Access::write, options.busy_wait);
    makes ? migrate(database) : check_schema(database);
    if (!database.ok())
        return database.take_fault();
    return std::unique_ptr<Store>(std::make_unique<SqliteStore>(path, options, std::move(serving)));
}

} // namespace store::sqlite
