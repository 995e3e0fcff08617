/// @file
/// The rows of the store's answers as JSON and as CSV: one shape for the API, the live stream and the export.
#pragma once

#include "json.h"

namespace api {

std::string json_of(const store::EventRow& row);
std::string json_of(const store::NameRow& row);
std::string json_of(const store::VersionRow& row);
std::string json_of(const store::FactRow& row);
std::string json_of(const store::PropertyRow& row);
std::string json_of(const store::PropertyPoint& row);
std::string json_of(const store::InstallationRow& row);
std::string json_of(const store::RetentionRow& row);
std::string json_of(const store::RejectRow& row);
std::string json_of(const store::Point& row);
std::string json_of(const store::Numbers& numbers);

/// {"total":...,"rows":[...]}
template <class Rows>
std::string table_of(uint64_t total, const Rows& rows)
{
    Json list('[');
    for (const auto& row : rows)
        list.element(json_of(row));
    return Json('{').count("total", total).raw("rows", list.end(']')).end('}');
}

/// The first line of an export as CSV (RFC 4180), its line end included.
std::string csv_header();
std::string csv_of(const store::EventRow& row);

} // namespace api
