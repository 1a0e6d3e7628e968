#include "harness/questions.h"

#include <nlohmann/json.hpp>

namespace campaign {

std::vector<Question> everyQuestion(Client& client) {
    const auto firstOf = [&](const std::string& path, std::string_view payload = {}) {
        const auto list = nlohmann::json::parse(client.get(path, payload));
        return path + "/" + list.at("data").at(0).at("id").get<std::string>();
    };
    const std::string driver = R"({"display":"Driver_Display"})";
    const std::string popup = firstOf("/popups", driver);
    const std::string regions =
        R"({"display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","subComponent":"campaign","regions":{"infoForAllLayers":[]}})";
    std::vector<Question> questions;
    for (const bool oneShot : {true, false}) {
        for (const char* path : {"/displays", "/displayables", "/layerconfigurations"}) {
            questions.push_back({"retrieve", path, {}, oneShot, managers[0]});
            questions.push_back({"retrieve", firstOf(path), {}, oneShot, managers[0]});
        }
        questions.push_back({"retrieve", "/popups", driver, oneShot, managers[2]});
        questions.push_back({"retrieve", popup, {}, oneShot, managers[2]});
    }
    questions.push_back({"update", popup, R"({"requested":true})", true, managers[2]});
    questions.push_back({"insert", "/regionconfigurations", regions, true, managers[1]});
    return questions;
}

}  // namespace campaign
