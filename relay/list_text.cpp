#include "list_text.h"

#include <cstdint>
#include <map>

#include "hmx/client/json_text.h"

namespace hmxrelay {

using hmx::client::JsonText;

std::optional<std::vector<ElementText>> elementTexts(std::string_view document) {
    std::vector<ElementText> elements;
    std::map<Bytes16, std::uint32_t> seen;
    bool isPage = false;
    JsonText json{document};
    const auto takeMember = [&json](const std::string& name, std::UUID& id) {
        if (name == "id" && json.type() == JsonText::Type::string) {
            (void)std::UUID::parse(json.string(), id);
        } else {
            (void)json.value();
        }
    };
    const auto takeElement = [&] {
        std::UUID id;
        const std::string_view text = json.textOf([&] { json.members([&](const std::string& name) { takeMember(name, id); }); });
        elements.push_back({{id.bytes(), seen[id.bytes()]++}, text});
    };
    std::UUID id;
    json.members([&](const std::string& name) {
        if (name != "data" || json.type() != JsonText::Type::array) return takeMember(name, id);
        isPage = true;
        elements.clear();
        seen.clear();
        json.elements(takeElement);
    });
    if (!json.isDone()) return std::nullopt;
    if (!isPage) elements.push_back({{id.bytes(), 0}, document});
    return elements;
}

}  // namespace hmxrelay
