// A store in one SQLite file.
#pragma once

#include "store/store.h"

namespace store::sqlite {

/// See store::open.
Result<std::unique_ptr<Store>> open(const std::string& path, const OpenOptions& options);

} // namespace store::sqlite
