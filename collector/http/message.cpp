#include "message.h"

#include <algorithm>

namespace http {

const std::string* Request::field(std::string_view name) const
{
    for (const auto& [key, value] : fields)
        if (key == name)
            return &value;
    return nullptr;
}

size_t Request::count(std::string_view name) const
{
    return static_cast<size_t>(
        std::count_if(fields.begin(), fields.end(), [&](const auto& field) { return field.first == name; }));
}

Answer sentence(int status, std::string_view text)
{
    Answer answer;
    answer.status = status;
    answer.body.assign(text).push_back('\n');
    return answer;
}

Answer try_again(int status, unsigned seconds, std::string_view text)
{
    Answer answer = sentence(status, text);
    answer.fields.emplace_back("Retry-After", std::to_string(seconds));
    return answer;
}

} // namespace http
