#include "peer_page.h"

#include <rapidjson/document.h>
#include <rapidjson/writer.h>
#include <uuid/uuid.h>

#include "traffic.h"

namespace peer {

using Value = rapidjson::Value;

std::string_view PageMaker::page(std::string_view displayList) {
    rapidjson::Document list;
    list.Parse(displayList.data(), displayList.size());
    if (list.HasParseError() || !list.IsObject() || !list.HasMember("infoForAllDisplays"))
        traffic::fail("not a list of displays");
    const auto displays = list["infoForAllDisplays"].GetArray();

    buffer_.Clear();
    rapidjson::Writer<rapidjson::StringBuffer> writer{buffer_};
    const auto text = [&](const char* key, std::string_view value) {
        writer.Key(key);
        writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
    };
    const auto number = [&](const char* key, int value) {
        writer.Key(key);
        writer.Int(value);
    };
    // For a member that upstream may leave out.
    const auto copy = [&](const char* key, const Value& from, const char* fromKey) {
        const auto found = from.FindMember(fromKey);
        if (found == from.MemberEnd()) return;
        writer.Key(key);
        found->value.Accept(writer);
    };
    writer.StartObject();
    number("total", static_cast<int>(displays.Size()));
    number("totalPages", 1);
    writer.Key("data");
    writer.StartArray();
    for (const Value& display : displays) {
        const std::string_view name{display["name"].GetString(), display["name"].GetStringLength()};
        const std::string& id = idOf(name);
        writer.StartObject();
        text("id", id);
        text("name", name);
        text("uri", "/hmx/displays/" + id);
        copy("connector", display, "connector");
        copy("displayID", display, "id");
        copy("displayInternalID", display, "internalid");
        if (const auto resolution = display.FindMember("resolution"); resolution != display.MemberEnd()) {
            writer.Key("resolution");
            writer.StartObject();
            copy("height", resolution->value, "height");
            copy("width", resolution->value, "width");
            writer.EndObject();
        }
        copy("terminal", display, "terminal");
        copy("touchSupport", display, "touchSupport");
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    return {buffer_.GetString(), buffer_.GetSize()};
}

const std::string& PageMaker::idOf(std::string_view name) {
    const auto known = ids_.find(name);
    if (known != ids_.end()) return known->second;
    const std::string idName = "hmx/displays/" + std::string{name};
    uuid_t bytes;
    ::uuid_generate_sha1(bytes, *::uuid_get_template("url"), idName.data(), idName.size());
    char text[UUID_STR_LEN];
    ::uuid_unparse_lower(bytes, text);
    return ids_.emplace(name, text).first->second;
}

}  // namespace peer
