#include "json_text.h"

#include "hmx/client/document.h"

namespace hmxgateway::json {

std::string text(std::string_view text) {
    return hmx::client::compact(hmx::client::Json(text));
}

void append(std::string& object, std::string_view key, std::string_view value) {
    if (value.empty()) return;
    object.pop_back();
    if (object.size() > 1) object += ',';
    object.append("\"").append(key).append("\":").append(value).append("}");
}

std::string object(std::initializer_list<Member> members) {
    std::string text{"{}"};
    for (const auto& [key, value] : members) append(text, key, value);
    return text;
}

std::string array(const std::vector<std::string>& elements) {
    std::string text{"["};
    for (const std::string& element : elements) text.append(text.size() > 1 ? "," : "").append(element);
    return text + "]";
}

}  // namespace hmxgateway::json
