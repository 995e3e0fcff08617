#include "file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace store::sqlite {

Fault system_fault(const std::string& path)
{
    static const struct
    {
        int error;
        FaultKind kind;
    } kinds[] = {{ENOENT, FaultKind::missing},  {ENOSPC, FaultKind::full},     {EACCES, FaultKind::read_only},
                 {EROFS, FaultKind::read_only}, {EPERM, FaultKind::read_only}, {EEXIST, FaultKind::exists},
                 {EISDIR, FaultKind::foreign}};
    FaultKind found = FaultKind::other;
    for (const auto& row : kinds) {
        if (row.error == errno)
            found = row.kind;
    }
    return {found, path + ": " + std::strerror(errno) + "."};
}

Result<Descriptor> lock_serving(const std::string& path)
{
    Descriptor file(::open((path + "-serve").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    if (file.number() < 0)
        return system_fault(path + "-serve");
    if (flock(file.number(), LOCK_EX | LOCK_NB) != 0)
        return Fault{FaultKind::in_use, "Another process serves this store."};
    return file;
}

std::optional<Fault> find_file(const std::string& path, bool makes)
{
    // Its rows tell of people, so nobody but the owner reads it; SQLite gives its other files the same mode.
    Descriptor made(makes ? ::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600) : -1);
    if (makes && made.number() < 0 && errno != EEXIST)
        return system_fault(path);
    struct stat facts;
    if (stat(path.c_str(), &facts) != 0)
        return system_fault(path);
    if (!S_ISREG(facts.st_mode))
        return Fault{FaultKind::foreign, path + " is no file."};
    return std::nullopt;
}

} // namespace store::sqlite
