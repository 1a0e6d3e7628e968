// The work of a relay written with RapidJSON: makes the page of displays from the display manager's answer.
#pragma once

#include <rapidjson/stringbuffer.h>

#include <map>
#include <string>
#include <string_view>

namespace peer {

// Makes exactly the page that the bridge makes. Ids are computed once for each name. Thread: one at a time.
class PageMaker {
public:
    // The result is valid until the next call.
    std::string_view page(std::string_view displayList);

private:
    const std::string& idOf(std::string_view name);

    rapidjson::StringBuffer buffer_;
    std::map<std::string, std::string, std::less<>> ids_;
};

}  // namespace peer
