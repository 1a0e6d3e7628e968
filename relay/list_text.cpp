#include "list_text.h"

#include <cstdint>
#include <map>

#include "hmx/client/json_text.h"

namespace hmxrelay {

using hmx::client::JsonText;

std::optional<std::vector<ElementText>> elementTexts(std::string_view document) {
    std::vector<ElementText> elements;
    std::map<Bytes16, std::uint32_t> seen;
    bool isWhole = true;
    const auto add = [&](std::string_view text) {
        std::UUID id;
        JsonText element{text};
        element.members([&](const std::string& name) {
            if (name == "id" && element.type() == JsonText::Type::string) {
                (void)std::UUID::parse(element.string(), id);
            } else {
                (void)element.value();
            }
        });
        isWhole = isWhole && element.isDone();
        elements.push_back({{id.bytes(), seen[id.bytes()]++}, text});
    };
    JsonText json{document};
    std::optional<std::vector<std::string_view>> data;
    json.members([&](const std::string& name) {
        if (name == "data" && json.type() == JsonText::Type::array) {
            data.emplace();
            json.elements([&] { data->push_back(json.value()); });
        } else {
            (void)json.value();
        }
    });
    if (!json.isDone()) return std::nullopt;
    if (!data) {
        add(document);
    } else {
        for (const std::string_view text : *data) add(text);
    }
    if (!isWhole) return std::nullopt;
    return elements;
}

}  // namespace hmxrelay
