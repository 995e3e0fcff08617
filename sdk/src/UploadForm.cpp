#include "UploadForm.h"

#include <utility>

#include "CurlInit.h"

namespace AnalyticsSDK {

UploadFields UploadForm(const char* id, const std::string& version, std::string&& text)
{
    const CurlUse use; // hashing needs OpenSSL, which a process that exits may have torn down
    UploadFields form{{UploadField::unique_id, id}, {UploadField::version, version}};
    form[UploadField::token] = use ? UploadToken(id) : ""; // present even when empty: servers expect four fields
    form[UploadField::data] = std::move(text);             // moved, never copied
    return form;
}

} // namespace AnalyticsSDK
