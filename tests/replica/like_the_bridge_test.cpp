// A replica that is fed with the bridge's own lists answers as the bridge does: each of a few thousand requests is made to both.
// Bridge and simulator are the real ones, without sockets, on workers that the test cranks.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "bridge/display_bridge.h"
#include "bridge/displayable_bridge.h"
#include "bridge/input_bridge.h"
#include "bridge/layers_bridge.h"
#include "bridge/popup_bridge.h"
#include "hmx/displayables_service.h"
#include "hmx/displays_service.h"
#include "hmx/layerconfigurations_service.h"
#include "hmx/popups_service.h"
#include "hmx/regionconfigurations_service.h"
#include "hmx/replica/local_api.h"
#include "hmx/replica/replica.h"
#include "hmxsim/stage.h"
#include "support/documents.h"

namespace {

using hmx::replica::LocalApi;
using Json = nlohmann::ordered_json;
using hmxsim_tests::Events;

// The events of one request: "200 TYPE BYTES", "404 reason", "completed".
class Recorder final : public kelo::IResponseHandler<kelo::Response> {
public:
    Recorder(std::shared_ptr<Events> events, bool oneShot) : events_{std::move(events)}, oneShot_{oneShot} {}
    bool onNext(const kelo::Response& response) override {
        std::string event = std::to_string(response.status()) + ' ' + std::string{response.getMimeTypeText()} + ' ' +
                            std::string{response.payload().text()};
        // What is the same again may be left out.
        if (events_->empty() || events_->back() != event) events_->push_back(std::move(event));
        return oneShot_;
    }
    void onError(const kelo::Response& response) override {
        events_->push_back(std::to_string(response.status()) + ' ' + std::string{response.reason()});
    }
    void onCompleted() override { events_->emplace_back("completed"); }
    bool isOneShot() const override { return oneShot_; }

private:
    std::shared_ptr<Events> events_;
    bool oneShot_;
};

// Calls a function with each page of a list.
class Feeder final : public kelo::IResponseHandler<kelo::Response> {
public:
    Feeder(std::function<void(const std::string&)> take, std::function<void(const kelo::Response&)> lose)
        : take_{std::move(take)}, lose_{std::move(lose)} {}
    bool onNext(const kelo::Response& response) override {
        take_(std::string{response.payload().text()});
        return false;
    }
    void onError(const kelo::Response& response) override { lose_(response); }
    void onCompleted() override {}

private:
    std::function<void(const std::string&)> take_;
    std::function<void(const kelo::Response&)> lose_;
};

class NoChanges final : public kelo::IResourceHandler {
    void* actionRequest(const kelo::Request&, std::unique_ptr<kelo::IResponder> responder, const std::string&) override {
        responder->error(kelo::Response::createErrorResponse(403, "a copy"));
        return nullptr;
    }
    void cancelRequest(void*) override {}
};

// Published under one path, for requests of the same thread.
struct Published {
    explicit Published(kelo::IResourceHandler& handler, std::string_view root = "/") { composed.registerService(root, &handler); }
    kelo::SimpleComposedKeloService composed;
    LocalApi api{"/hmx", composed};
};

std::string worldText() {
    std::ifstream file{HMX_SOURCE_DIR "/share/worlds/cockpit.json"};
    std::stringstream text;
    text << file.rdbuf();
    Json world = Json::parse(text.str());
    // What is odd but allowed: elements without a name, absent members, a name that has to be encoded.
    Json& displays = world["displaymanager"]["displays"];
    displays.push_back(Json::parse(R"({"id":8,"touchSupport":false})"));
    displays.push_back(Json::parse(R"({"id":9,"name":"Rear/Left \u00e4","touchSupport":true})"));
    world["popupmanager"]["displays"]["Driver_Display"].push_back(Json{{"name", "Bare"}});
    return world.dump();
}

struct Question {
    std::string path;
    std::string body;  // JSON, or ""
    std::string mimeType = "application/json";
};
std::ostream& operator<<(std::ostream& out, const Question& question) {
    return out << question.path << ' ' << question.body << ' ' << question.mimeType;
}

class Both : public testing::Test {
protected:
    Both() {
        for (const auto& [bridge, api] : {std::pair{0, &displayManager_}, {1, &inputManager_}, {2, &popupManager_}}) {
            kelo::post(*worker_, [this, which = bridge, to = hmx::ServiceApi{.info = {}, .api = &api->api}] {
                if (which == 1) return regions_.setApi(to);
                if (which == 2) return popups_.setApi(to);
                displays_.setApi(to);
                displayables_.setApi(to);
                layers_.setApi(to);
            });
        }
        settle();
        feed<kelo::hmx::DisplayObject>(replica_.displays(), "/displays");
        feed<kelo::hmx::DisplayableObject>(replica_.displayables(), "/displayables");
        feed<kelo::hmx::LayerconfigurationObject>(replica_.layerconfigurations(), "/layerconfigurations");
        for (const std::string display : {"Driver_Display", "Co_Driver_Display", "Cluster_Display", "Rear/Left \u00e4"}) {
            feed<kelo::hmx::PopupObject>(replica_.popups(), "/popups", display);
        }
        for (const char* hmi : {"HMI_ID_ANDROID_DRIVER", "HMI_ID_ANDROID_DRIVER_POPUP"}) {
            const Json body{{"display", "Driver_Display"},
                            {"hmi", hmi},
                            {"regions", Json::parse(R"({"infoForAllLayers":[{"layer":"Home"}]})")}};
            const Events inserted = *ask(bridge_, {"/regionconfigurations", body.dump()}, true, "insert");
            const std::string id = inserted.front().substr(inserted.front().rfind('/') + 1, std::UUID::textLength);
            regionIds_.push_back(id);
            const std::string path = "/regionconfigurations/" + id;
            follow(path, "", [this, id](const std::string& text) {
                elements_["/regionconfigurations"] = {Json::parse(text)};
                auto object = support::fromJson<kelo::hmx::RegionconfigurationObject>(text);
                replica_.regionconfigurations().set(id,
                                                    {std::make_shared<kelo::hmx::RegionconfigurationObject>(std::move(object))});
            });
        }
        EXPECT_EQ(elements_["/popups?display=Driver_Display"].size(), 7U) << "the world of this test has changed";
    }
    ~Both() override {
        for (const auto& [api, handle] : open_) api->cancel(handle);
        settle();
    }

    template <class Element>
    void feed(hmx::replica::Resource<Element>& resource, const std::string& path, const std::string& display = "") {
        const std::string body = display.empty() ? "" : Json{{"display", display}}.dump();
        follow(
            path, body,
            [this, &resource, path, display](const std::string& text) {
                elements_[path + (display.empty() ? "" : "?display=" + display)] =
                    Json::parse(text)["data"].get<std::vector<Json>>();
                resource.set(display, support::fromJson<kelo::tolu::ListPage<Element>>(text).data);
            },
            [&resource, display](const kelo::Response& why) { resource.lose(display, why); });
    }
    void follow(const std::string& path, const std::string& body, std::function<void(const std::string&)> take,
                std::function<void(const kelo::Response&)> lose = {}) {
        open_.emplace_back(&bridge_, bridge_.request(requestOf({path, body}, "retrieve"),
                                                     std::make_unique<Feeder>(std::move(take), std::move(lose))));
        settle();
    }

    void settle() {
        while (sim_.worker.runPending() + worker_->runPending() > 0) {
        }
    }

    static kelo::Request requestOf(const Question& question, const std::string& command) {
        kelo::Request request{command, question.path};
        if (!question.body.empty()) {
            const Json body = Json::parse(question.body);
            std::vector<std::uint8_t> bytes(question.body.begin(), question.body.end());
            if (question.mimeType == "application/vnd.msgpack") bytes = Json::to_msgpack(body);
            if (question.mimeType == "application/vnd.ixobin") bytes = Json::to_cbor(body);
            request.setPayload(kelo::Payload::copyOf(bytes, kelo::MimeType{question.mimeType}));
        }
        request.setMimeType(question.mimeType);
        return request;
    }
    std::shared_ptr<Events> ask(LocalApi& api, const Question& question, bool oneShot, const std::string& command = "retrieve") {
        auto events = std::make_shared<Events>();
        open_.emplace_back(&api, api.request(requestOf(question, command), std::make_unique<Recorder>(events, oneShot)));
        settle();
        return events;
    }

    // Each member with values that elements have and others, each way of cutting, each element.
    std::vector<Question> questions(const kelo::record::Description& element, const std::string& path, const Json& fixed,
                                    const std::vector<Json>& elements) const {
        std::vector<Question> all;
        const auto add = [&](Json parameters) {
            parameters.update(fixed);
            all.push_back({path, parameters.dump()});
        };
        std::vector<std::string> ids{"4c0d5c1e-0000-4000-8000-000000000000"};
        for (const Json& each : elements) ids.push_back(each["id"]);
        std::set<std::string> keys{"nonsense"};
        for (const auto& member : element.members) keys.emplace(member.key);
        for (const std::string& key : keys) {
            std::set<Json> values{"UNDEFINED", "", "Driver_Display", 1, -2147483648, 4294967296, 1.5, true, false, nullptr};
            for (const Json& each : elements) values.insert(each.value(key, Json{}));
            for (const Json& value : values) {
                if (!fixed.contains(key)) add({{key, value}});
            }
            add({{"fields", {key}}});
            add({{"fields", {key, "id"}}, {"limit", 2}});
        }
        for (const Json& limit : {Json(0), Json(1), Json(2), Json(100), Json("1"), Json(-1)}) {
            for (const Json& offset : {Json(), Json(0), Json(1), Json(100), Json(-1), Json("x")}) {
                add({{"limit", limit}, {"offset", offset}});
            }
            for (const std::string& id : ids) add({{"limit", limit}, {"offsetId", id}});
        }
        add({{"offsetId", "none"}});
        add({{"fields", "name"}});
        add({{"fields", Json::array()}, {"visible", true}, {"touchSupport", true}, {"limit", 1}});
        for (const std::string& id : ids) {
            all.push_back({path + "/" + id, ""});
            all.push_back({path + "/" + id, R"({"fields":["name"],"name":"nobody"})"});
            all.push_back({path + "/" + id, R"({"limit":"many"})"});
        }
        all.push_back({path + "/none", ""});
        all.push_back({path + "s", ""});
        return all;
    }
    std::vector<Question> allQuestions() const {
        using kelo::record::describe;
        std::vector<Question> all{{"/displays", ""}, {"/popups", ""}, {"/popups", "{}"}, {"/nowhere", ""}, {"/popups", "[]"}};
        const auto add = [&](std::vector<Question> more) { all.insert(all.end(), more.begin(), more.end()); };
        const auto at = [&](const std::string& path) { return elements_.at(path); };
        add(questions(describe<kelo::hmx::DisplayObject>(), "/displays", Json::object(), at("/displays")));
        add(questions(describe<kelo::hmx::DisplayableObject>(), "/displayables", Json::object(), at("/displayables")));
        add(questions(describe<kelo::hmx::LayerconfigurationObject>(), "/layerconfigurations", Json::object(),
                      at("/layerconfigurations")));
        for (const char* display : {"Driver_Display", "Cluster_Display", "Rear/Left \u00e4", "Nowhere", "", "UNDEFINED"}) {
            const auto known = elements_.find(std::string{"/popups?display="} + display);
            add(questions(describe<kelo::hmx::PopupObject>(), "/popups", {{"display", display}},
                          known == elements_.end() ? std::vector<Json>{} : known->second));
        }
        add(questions(describe<kelo::hmx::RegionconfigurationObject>(), "/regionconfigurations", Json::object(),
                      at("/regionconfigurations")));
        return all;
    }

    hmxsim_tests::Stage sim_{worldText()};
    Published displayManager_{sim_.displays()}, inputManager_{sim_.inputs()}, popupManager_{sim_.popups()};
    const std::shared_ptr<comm::ActiveObject> worker_ =
        std::make_shared<comm::ActiveObject>("bridge", comm::ActiveObject::ByHand{});
    hmx::DisplayBridge displays_{worker_};
    hmx::DisplayableBridge displayables_{worker_};
    hmx::LayersBridge layers_{worker_};
    hmx::InputBridge regions_{worker_};
    hmx::PopupBridge popups_{worker_};
    kelo::hmx::DisplaysService displaysService_{&displays_};
    kelo::hmx::DisplayablesService displayablesService_{&displayables_};
    kelo::hmx::LayerconfigurationsService layersService_{&layers_};
    kelo::hmx::RegionconfigurationsService regionsService_{&regions_};
    kelo::hmx::PopupsService popupsService_{&popups_};
    NoChanges noChanges_;
    hmx::replica::Replica replica_{noChanges_};
    kelo::SimpleComposedKeloService hmx_ = {};
    const int registered_ =
        hmx_.registerService("/displays", &displaysService_) + hmx_.registerService("/displayables", &displayablesService_) +
        hmx_.registerService("/layerconfigurations", &layersService_) +
        hmx_.registerService("/regionconfigurations", &regionsService_) + hmx_.registerService("/popups", &popupsService_);
    LocalApi bridge_{"/hmx", hmx_};
    LocalApi copy_{"/hmx", replica_.service()};
    std::vector<std::pair<LocalApi*, void*>> open_;
    std::map<std::string, std::vector<Json>> elements_;  // of the bridge, by what they were asked with
    std::vector<std::string> regionIds_;
};

TEST_F(Both, AnswerEveryRetrieveAlike) {
    std::size_t values = 0;
    const std::vector<Question> all = allQuestions();
    for (Question question : all) {
        for (const char* mimeType : {"application/json", "application/vnd.msgpack", "application/vnd.ixobin"}) {
            question.mimeType = mimeType;
            const auto original = ask(bridge_, question, true);
            ASSERT_EQ(*ask(copy_, question, true), *original) << question;
            ASSERT_EQ(original->size(), 1U) << question;
            values += original->front().starts_with("200") ? 1 : 0;
        }
    }
    EXPECT_GT(values, all.size()) << "half of them and more are answered with a value";
    EXPECT_EQ(*ask(copy_, {"/displays", ""}, true, "update"), Events{"403 a copy"});
    EXPECT_EQ(*ask(copy_, {"/displays", ""}, true, "dance"), *ask(bridge_, {"/displays", ""}, true, "dance"));
}

TEST_F(Both, TellWhoFollowsTheSame) {
    struct Followed {
        Question question;
        std::shared_ptr<Events> original, copy;
    };
    std::vector<Followed> all;
    for (const Question& question : allQuestions()) {
        auto original = ask(bridge_, question, false);
        all.push_back({question, std::move(original), ask(copy_, question, false)});
    }
    const auto change = [&](const char* command, const std::string& path, const std::string& body) {
        EXPECT_EQ(sim_.control(command, path, body).substr(0, 3), "204") << path;
        settle();
    };
    change("update", "/popups/Driver_Display/Hint", R"({"requested":true,"requestData":"1"})");
    change("update", "/popups/Driver_Display/Bare", R"({"requested":true,"slot":"Center","priorityInlayer":99})");
    change("insert", "/popups/Driver_Display", R"({"name":"Late","requested":true,"slot":"Center","priorityInlayer":100})");
    change("delete", "/popups/Driver_Display/Hint", "");
    change("update", "/state/displaymanager/displays/Driver_Display", R"({"terminal":5,"connector":null})");
    change("delete", "/state/displaymanager/displays/Cluster_Display", "");
    change("update", "/state/displaymanager/displayables/1001", R"({"type":77})");
    change("update", "/state/displaymanager/layerConfig/Driver_Display", R"({"layers":{"infoForAllLayers":[]}})");
    const std::string region = "/regionconfigurations/" + regionIds_.back();
    EXPECT_EQ(ask(bridge_, {region, R"({"regions":{"infoForAllLayers":[{"layer":"Map"}]}})"}, true, "update")->size(), 1U);
    std::size_t changes = 0;
    for (const Followed& each : all) {
        EXPECT_EQ(*each.copy, *each.original) << each.question;
        changes += each.original->size() - 1;
    }
    EXPECT_GT(changes, 500U);

    replica_.displays().lose("", kelo::Response::createErrorResponse(503, "gone"));
    for (const Followed& each : all) {
        if (each.question.path != "/displays" || each.original->back().front() != '2') continue;
        EXPECT_EQ(each.copy->back(), "503 gone") << each.question;
    }
    EXPECT_EQ(*ask(copy_, {"/displays", ""}, true), Events{"503 gone"});
}

}  // namespace
