#include "UploadForm.h"

#include <utility>

#include "CurlInit.h"

namespace AnalyticsSDK {

UploadFields UploadForm(const char* id, const std::string& version, std::string&& text)
{
    const CurlUse use; // hashing is OpenSSL's work, which a process that is leaving may have torn down
    UploadFields form{{UploadField::uniqueId, id}, {UploadField::version, version}};
    form[UploadField::token] = use ? UploadToken(id) : ""; // there also when it is empty: receivers expect four fields
    form[UploadField::data] = std::move(text);             // moved all the way, never copied
    return form;
}

} // namespace AnalyticsSDK
