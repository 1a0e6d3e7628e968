#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "hmx/displayables_service.h"
#include "hmx/displays_service.h"
#include "hmx/layerconfigurations_service.h"
#include "hmx/popups_service.h"
#include "hmx/regionconfigurations_service.h"
#include "samples.h"
#include "support/documents.h"
#include "support/recording_responder.h"
#include "support/traced_lines.h"

namespace {

using namespace samples;
using kelo::IResponseHandler;
using support::Answers;
using support::MimeTypeID;
using support::TracedLines;
using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;
using Params = kelo::optional<kelo::toluglobals::ToluParams>;
template <class T>
using Handler = std::unique_ptr<IResponseHandler<T>>;

const std::string json = "application/json";

// Implements all five interfaces: records its calls and answers at once, as scripted.
class Bridge final : public IDisplays,
                     public IDisplayables,
                     public ILayerconfigurations,
                     public IRegionconfigurations,
                     public IPopups {
public:
    std::string script;              // n: onNext with the sample, e: onError, c: onCompleted
    std::vector<std::string> calls;  // "retrieveDisplayObject <id> <other argument>"
    std::vector<bool> finished;      // what each onNext returned
    bool oneShot = false;            // of the last handler
    std::vector<void*> cancelled;
    DisplayObject displaySample = display();

    void* handle() { return &script; }
    void cancelRequest(void* request) override { cancelled.push_back(request); }

    void* retrieveDisplayObject(Handler<DisplayObject>&& handler, const std::UUID& id, const Params& params) override {
        return start("retrieveDisplayObject", std::move(handler), displaySample, &id, params);
    }
    void* retrieveDisplayObjects(Handler<DisplayObjectListPage>&& handler, const Params& params) override {
        return start("retrieveDisplayObjects", std::move(handler), pageOf(display()), nullptr, params);
    }
    void* retrieveDisplayableObject(Handler<DisplayableObject>&& handler, const std::UUID& id, const Params& params) override {
        return start("retrieveDisplayableObject", std::move(handler), displayable(), &id, params);
    }
    void* retrieveDisplayableObjects(Handler<DisplayableObjectListPage>&& handler, const Params& params) override {
        return start("retrieveDisplayableObjects", std::move(handler), pageOf(displayable()), nullptr, params);
    }
    void* retrieveLayerconfigurationObject(Handler<LayerconfigurationObject>&& handler, const std::UUID& id,
                                           const Params& params) override {
        return start("retrieveLayerconfigurationObject", std::move(handler), layers(), &id, params);
    }
    void* retrieveLayerconfigurationObjects(Handler<LayerconfigurationObjectListPage>&& handler, const Params& params) override {
        return start("retrieveLayerconfigurationObjects", std::move(handler), pageOf(layers()), nullptr, params);
    }
    void* deleteRegionconfigurationObject(Handler<std::nullptr_t>&& handler, const std::UUID& id,
                                          const kelo::optional<std::vector<std::string>>& fields) override {
        return start<std::nullptr_t>("deleteRegionconfigurationObject", std::move(handler), nullptr, &id, fields);
    }
    void* insertRegionconfigurationObject(Handler<kelo::url>&& handler, const InsertRegionconfigurationObject& body) override {
        return start("insertRegionconfigurationObject", std::move(handler), kelo::url{"/inserted"}, nullptr,
                     kelo::optional<InsertRegionconfigurationObject>{body});
    }
    void* retrieveRegionconfigurationObject(Handler<RegionconfigurationObject>&& handler, const std::UUID& id,
                                            const Params& params) override {
        return start("retrieveRegionconfigurationObject", std::move(handler), regionconfiguration(), &id, params);
    }
    void* updateRegionconfigurationObject(Handler<kelo::url>&& handler, const std::UUID& id,
                                          const UpdateRegionconfigurationObject& body) override {
        return start("updateRegionconfigurationObject", std::move(handler), kelo::url{"/updated"}, &id,
                     kelo::optional<UpdateRegionconfigurationObject>{body});
    }
    void* retrievePopupObject(Handler<PopupObject>&& handler, const std::UUID& id, const Params& params) override {
        return start("retrievePopupObject", std::move(handler), popup(), &id, params);
    }
    void* retrievePopupObjects(Handler<PopupObjectListPage>&& handler, const Params& params) override {
        return start("retrievePopupObjects", std::move(handler), pageOf(popup()), nullptr, params);
    }
    void* updatePopupObject(Handler<kelo::url>&& handler, const std::UUID& id, const UpdatePopupObject& body) override {
        return start("updatePopupObject", std::move(handler), kelo::url{"/popup"}, &id, kelo::optional<UpdatePopupObject>{body});
    }

private:
    template <class T, class Argument>
    void* start(const char* operation, Handler<T>&& handler, const T& sample, const std::UUID* id, const Argument& argument) {
        calls.push_back(std::string{operation} + (id != nullptr ? " " + id->toString() : "") +
                        (argument ? " " + support::toJson(*argument) : ""));
        oneShot = handler->isOneShot();
        const Handler<T> owned = std::move(handler);
        for (const char event : script) {
            if (event == 'n') finished.push_back(owned->onNext(sample));
            if (event == 'e') owned->onError(kelo::Response::createErrorResponse(418, "upstream's own words"));
            if (event == 'c') owned->onCompleted();
        }
        return handle();
    }
};

// A service and its paths.
struct Resource {
    std::string name;
    std::string path;
    std::string channel;
    std::unique_ptr<kelo::IResourceHandler> service;
};

class ResourceServices : public testing::Test {
protected:
    const Resource& resource(const std::string& path) {
        for (const Resource& each : resources) {
            if (path.starts_with(each.path + "/") || path == each.path) return each;
        }
        throw std::logic_error{path};
    }

    static kelo::Request request(const std::string& command, const std::string& path, const std::string& body = {},
                                 const std::string& mimeType = json) {
        kelo::Request result{command, path, kelo::Payload::copyOf(body, kelo::MimeType{mimeType})};
        result.setClientId("client-1");
        return result;
    }
    void* ask(kelo::IResourceHandler& handler, const kelo::Request& request, const std::string& tag = "tag") {
        return handler.actionRequest(request, support::respondTo(answers), tag);
    }
    void* ask(const kelo::Request& request, const std::string& tag = "tag") {
        return ask(*resource(request.path()).service, request, tag);
    }

    // Expects a refusal: the client's answer, the log line, and nothing else.
    void expectRefusal(TracedLines& traced, const kelo::Request& request, void* handle, int status, const std::string& reason) {
        EXPECT_EQ(handle, kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE);
        EXPECT_THAT(bridge.calls, IsEmpty());
        EXPECT_EQ(answers.errorCode, status == 404 ? 14 : 15);
        EXPECT_THAT(answers.take(), ElementsAre("error " + std::to_string(status) + " plain/text " + reason, "gone"));
        EXPECT_THAT(traced.take(), ElementsAre("4 [actionRequest] failed: cmd='" + request.command() + "' path='" +
                                               request.path() + "' reason='" + reason + "'"));
        EXPECT_FALSE(std::ErrorStorage::hasError());
    }

    Bridge bridge;
    Answers answers;
    const Resource resources[5] = {
        {"DisplaysService", "/displays", "KELO_HMX_DISPLAYSSERVICE", std::make_unique<DisplaysService>(&bridge)},
        {"DisplayablesService", "/displayables", "KELO_HMX_DISPLAYABLESSERVICE", std::make_unique<DisplayablesService>(&bridge)},
        {"LayerconfigurationsService", "/layerconfigurations", "KELO_HMX_LAYERCONFIGURATIONSSERVICE",
         std::make_unique<LayerconfigurationsService>(&bridge)},
        {"RegionconfigurationsService", "/regionconfigurations", "KELO_HMX_REGIONCONFIGURATIONSSERVICE",
         std::make_unique<RegionconfigurationsService>(&bridge)},
        {"PopupsService", "/popups", "KELO_HMX_POPUPSSERVICE", std::make_unique<PopupsService>(&bridge)}};
};

bool takesBody(std::string_view command) {
    return command == "update" || command == "insert";
}
const std::string insertBody = R"({"display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","regions":{}})";

TEST_F(ResourceServices, EveryCommandOnEveryPathIsItsOperationOrNotFound) {
    const std::map<std::string, std::string> operations = {
        {"retrieve /displays/*", "retrieveDisplayObject"},
        {"retrieve /displays", "retrieveDisplayObjects"},
        {"retrieve /displayables/*", "retrieveDisplayableObject"},
        {"retrieve /displayables", "retrieveDisplayableObjects"},
        {"retrieve /layerconfigurations/*", "retrieveLayerconfigurationObject"},
        {"retrieve /layerconfigurations", "retrieveLayerconfigurationObjects"},
        {"retrieve /popups/*", "retrievePopupObject"},
        {"retrieve /popups", "retrievePopupObjects"},
        {"update /popups/*", "updatePopupObject"},
        {"retrieve /regionconfigurations/*", "retrieveRegionconfigurationObject"},
        {"update /regionconfigurations/*", "updateRegionconfigurationObject"},
        {"delete /regionconfigurations/*", "deleteRegionconfigurationObject"},
        {"insert /regionconfigurations", "insertRegionconfigurationObject"},
    };
    std::size_t served = 0;
    for (const auto& [name, root, channel, handler] : resources) {
        TracedLines traced{channel};
        for (const char* command : {"retrieve", "update", "delete", "insert", "Retrieve", "subscribe", ""}) {
            for (const char* below : {"", "/*", "/", "/*/", "/*/x", "s", "s/*"}) {
                std::string path = root + below;
                const auto operation = operations.find(command + (" " + path));
                if (const auto star = path.find('*'); star != std::string::npos) path.replace(star, 1, idText);
                SCOPED_TRACE(command + (" " + path));
                const auto asked = request(command, path, takesBody(command) ? insertBody : "");
                void* const handle = ask(*handler, asked);
                if (operation == operations.end()) {
                    std::string reason = name;
                    reason.append(": no operation for command '").append(command).append("' and path '").append(path).append("'");
                    expectRefusal(traced, asked, handle, 404, reason);
                    continue;
                }
                ++served;
                EXPECT_EQ(handle, bridge.handle());
                ASSERT_EQ(bridge.calls.size(), 1U);
                const std::string call = std::exchange(bridge.calls, {}).front();
                EXPECT_EQ(call.substr(0, call.find(' ')), operation->second);
                EXPECT_THAT(answers.take(), ElementsAre("gone")) << "the bridge stayed silent";
                EXPECT_THAT(traced.take(), IsEmpty());
            }
        }
        handler->cancelRequest(bridge.handle());
    }
    EXPECT_EQ(served, operations.size());
    EXPECT_THAT(bridge.cancelled,
                ElementsAre(bridge.handle(), bridge.handle(), bridge.handle(), bridge.handle(), bridge.handle()));
}

TEST_F(ResourceServices, ArgumentsReachTheOperation) {
    struct Case {
        const char* command;
        std::string path;
        std::string body;
        std::string call;
    };
    const Case cases[] = {
        {"retrieve", "/displays/" + idText, "", "retrieveDisplayObject " + idText},
        {"retrieve", "/displays/19243473-0126-5F4B-B1BF-4879152C72E5", "{}", "retrieveDisplayObject " + idText + " {}"},
        {"retrieve", "/popups", R"({"slot":"top","limit":2,"fields":["slot"]})",
         R"(retrievePopupObjects {"slot":"top","fields":["slot"],"limit":2})"},
        {"retrieve", "/popups/" + idText, R"({"slot":"top","nobody":1,"fields":["slot"]})",
         "retrievePopupObject " + idText + R"( {"fields":["slot"]})"},
        {"update", "/popups/" + idText, updatePopupJson, "updatePopupObject " + idText + " " + updatePopupJson},
        {"update", "/popups/" + idText, " {} ", "updatePopupObject " + idText + " {}"},
        {"insert", "/regionconfigurations", insertRegionconfigurationJson,
         "insertRegionconfigurationObject " + insertRegionconfigurationJson},
        {"update", "/regionconfigurations/" + idText, updateRegionconfigurationJson,
         "updateRegionconfigurationObject " + idText + " " + updateRegionconfigurationJson},
        {"delete", "/regionconfigurations/" + idText, "", "deleteRegionconfigurationObject " + idText},
        {"delete", "/regionconfigurations/" + idText, "{}", "deleteRegionconfigurationObject " + idText},
        {"delete", "/regionconfigurations/" + idText, R"({"fields":null})", "deleteRegionconfigurationObject " + idText},
        {"delete", "/regionconfigurations/" + idText, R"({"fields":["a","b"]})",
         "deleteRegionconfigurationObject " + idText + R"( ["a","b"])"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.call);
        EXPECT_EQ(ask(request(c.command, c.path, c.body)), bridge.handle());
        EXPECT_THAT(std::exchange(bridge.calls, {}), ElementsAre(c.call));
    }
}

TEST_F(ResourceServices, BadArgumentsAreRefusedBeforeTheBridgeHearsOfThem) {
    struct Case {
        const char* command;
        std::string path;
        std::string body;
        const char* mimeType;
        const char* tag;
        std::string reason;
    };
    const std::string popupPath = "/popups/" + idText;
    std::string tooMany = R"({"name":"n")";
    for (int i = 0; i < 32; ++i) tooMany += ",\"\":0";
    tooMany += "}";
    const std::string regionPath = "/regionconfigurations/" + idText;
    const auto* const text = "application/json";
    const std::string updatePopup = "PopupsService::updatePopupObject: ";
    const std::string insert = "RegionconfigurationsService::insertRegionconfigurationObject: ";
    const std::string remove = "RegionconfigurationsService::deleteRegionconfigurationObject: ";
    const Case cases[] = {
        {"retrieve", "/displays/" + idText, "", text, "", "DisplaysService::retrieveDisplayObject: empty tag"},
        {"retrieve", "/displays", "", text, "", "DisplaysService::retrieveDisplayObjects: empty tag"},
        {"retrieve", "/displays/abc", "", text, "t", "DisplaysService::retrieveDisplayObject: 'abc' is not a UUID"},
        {"retrieve", "/displays/abc", "!", text, "", "DisplaysService::retrieveDisplayObject: empty tag"},
        {"retrieve", "/displays", "{}", "plain/text", "t",
         "DisplaysService::retrieveDisplayObjects: cannot read mime type 'plain/text'"},
        {"retrieve", "/displays", "{}", "text/html", "t",
         "DisplaysService::retrieveDisplayObjects: cannot read mime type 'text/html'"},
        {"retrieve", "/displays", "{}", "", "t", "DisplaysService::retrieveDisplayObjects: cannot read mime type ''"},
        {"retrieve", "/displays", R"({"limit":0})", text, "t",
         "DisplaysService::retrieveDisplayObjects: limit: not an integer from 1 to 2147483647"},
        {"retrieve", "/displays", tooMany, text, "t", "DisplaysService::retrieveDisplayObjects: 33 parameters; the limit is 32"},
        {"update", "/popups/" + idText + "0", "{}", text, "t", updatePopup + "'" + idText + "0' is not a UUID"},
        {"update", popupPath, "", text, "t", updatePopup + "empty body"},
        {"update", popupPath, R"({"visible":"yes"})", text, "t", updatePopup + "visible: "},
        {"update", popupPath, "{}{}", text, "t", updatePopup},
        {"update", popupPath, "{} 1", text, "t", updatePopup},
        {"update", popupPath, "[]", text, "t", updatePopup},
        {"update", popupPath, "{\"visible\":tr", text, "t", updatePopup + "visible: "},
        {"update", popupPath, "\xc1", "application/vnd.msgpack", "t", updatePopup},
        {"update", popupPath, "{}", "application/vnd.ixobin", "t", updatePopup},
        {"insert", "/regionconfigurations", "{}", text, "t", insert + "display: "},
        {"insert", "/regionconfigurations", R"({"display":"Lower_Display"})", text, "t", insert + "display: "},
        {"insert", "/regionconfigurations", "", text, "t", insert + "empty body"},
        {"insert", "/regionconfigurations", insertBody, text, "", insert + "empty tag"},
        {"update", regionPath, R"({"regions":{"infoForAllLayers":[{"layer":1}]}})", text, "t",
         "RegionconfigurationsService::updateRegionconfigurationObject: regions.infoForAllLayers[0].layer: "},
        {"delete", "/regionconfigurations/x", "", text, "t", remove + "'x' is not a UUID"},
        {"delete", regionPath, R"({"fields":["a"],"force":true})", text, "t", remove + "another key than \"fields\""},
        {"delete", regionPath, R"({"fields":"a"})", text, "t", remove + "fields: "},
        {"delete", regionPath, R"(["a"])", text, "t", remove},
        {"retrieve", "/regionconfigurations/x", "", text, "t",
         "RegionconfigurationsService::retrieveRegionconfigurationObject: 'x' is not a UUID"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.reason + " <- " + c.body);
        TracedLines traced{resource(c.path).channel};
        const auto asked = request(c.command, c.path, c.body, c.mimeType);
        void* const handle = ask(asked, c.tag);
        ASSERT_FALSE(answers.responses.empty());
        // A reason that ends with a colon is followed by the reader's text.
        const std::string reason{answers.responses.back().reason()};
        if (c.reason.ends_with(": ")) {
            EXPECT_THAT(reason, testing::StartsWith(c.reason));
            EXPECT_GT(reason.size(), c.reason.size());
        } else {
            EXPECT_EQ(reason, c.reason);
        }
        expectRefusal(traced, asked, handle, 400, reason);
    }
}

// A service with routes made for a test.
constexpr auto misplaced =
    kelo::hmx::route<RetrievePopupObjectResponseHandler, &IPopups::retrievePopupObject>(kelo::commands::retrieve, "/popups");
constexpr auto listed =
    kelo::hmx::route<RetrievePopupObjectsResponseHandler, &IPopups::retrievePopupObjects>(kelo::commands::update, "/popups");
constexpr auto misplacedTable = kelo::hmx::routeTable(misplaced, listed);
constexpr auto ambiguousTable = kelo::hmx::routeTable(listed, misplaced, listed);

struct OwnService final : kelo::hmx::ResourceService {
    template <std::size_t N>
    OwnService(IPopups* impl, const kelo::hmx::RouteTable<IPopups, N>& table, const tracing::Channel& channel)
        : ResourceService{"OwnService", impl, table, channel} {}
};

TEST_F(ResourceServices, NothingIsLoggedWhereTheChannelLetsNothingThrough) {
    TracedLines traced{"quiet"};
    tracing::Channel channel{"quiet"};
    OwnService service{&bridge, misplacedTable, channel};
    for (const int threshold : {4, 5}) {
        channel.setThreshold(threshold);
        ask(service, request("retrieve", "/popups"));
        EXPECT_THAT(answers.take(),
                    ElementsAre("error 400 plain/text OwnService::retrievePopupObject: no element in the path", "gone"));
        EXPECT_EQ(traced.take().size(), threshold == 4 ? 1U : 0U);
        EXPECT_FALSE(std::ErrorStorage::hasError());
    }
}

TEST_F(ResourceServices, WhatAClientSendsNeitherCutsALogLineNorStandsInIt) {
    TracedLines traced{"KELO_HMX_REGIONCONFIGURATIONSSERVICE"};
    const std::string path = "/regionconfigurations/" + std::string(5000, 'p');
    kelo::Request asked = request("", path);
    asked.setCommand(std::string_view{"up\0date", 7});
    ask(asked);
    const std::string shown = path.substr(0, 256) + "…";
    EXPECT_THAT(
        traced.take(),
        ElementsAre("4 [actionRequest] failed: cmd='up\\x00date' path='" + shown +
                    "' reason='RegionconfigurationsService: no operation for command 'up\\x00date' and path '" + shown + "''"));
    for (const char* const body : {R"({"display":"secret"})", R"({"secret":tru)", R"({"display":7,"hmi":"secret"})"}) {
        ask(request("insert", "/regionconfigurations", body));
        ask(request("delete", "/regionconfigurations/" + idText, body));
        ask(request("retrieve", "/regionconfigurations/" + idText, body));
    }
    EXPECT_THAT(traced.take(), testing::Each(testing::Not(testing::HasSubstr("secret"))));
}

TEST_F(ResourceServices, TwoRoutesForTheSameAreRefused) {
    const tracing::Channel channel{"ambiguous"};
    try {
        const OwnService service{&bridge, ambiguousTable, channel};
        FAIL();
    } catch (const std::invalid_argument& refused) {
        EXPECT_STREQ(refused.what(), "OwnService: two routes for command 'update' and path '/popups'");
    }
}

util::config::Value valueOf(MimeTypeID encoding, std::string_view document) {
    util::config::Value value;
    EXPECT_EQ(support::readDocument(encoding, document, value), "");
    return value;
}

TEST_F(ResourceServices, AnswersAreWrittenAsTheClientAccepts) {
    struct Case {
        const char* command;
        std::string path;
        std::string answer;  // "": no payload
    };
    const Case cases[] = {
        {"retrieve", "/displays/" + idText, displayJson},
        {"retrieve", "/displays", pageJson(displayJson)},
        {"retrieve", "/displayables/" + idText, displayableJson},
        {"retrieve", "/displayables", pageJson(displayableJson)},
        {"retrieve", "/layerconfigurations/" + idText, layersJson},
        {"retrieve", "/layerconfigurations", pageJson(layersJson)},
        {"retrieve", "/regionconfigurations/" + idText, regionconfigurationJson},
        {"delete", "/regionconfigurations/" + idText, ""},
        {"insert", "/regionconfigurations", R"("/inserted")"},
        {"update", "/regionconfigurations/" + idText, R"("/updated")"},
        {"retrieve", "/popups/" + idText, popupJson},
        {"retrieve", "/popups", pageJson(popupJson)},
        {"update", "/popups/" + idText, R"("/popup")"},
    };
    const std::pair<const char*, MimeTypeID> accepts[] = {
        {"", MimeTypeID::json},  // the request's own type
        {"application/json", MimeTypeID::json},
        {"application/vnd.msgpack", MimeTypeID::msgpack},
        {"text/html, application/octet-stream, application/vnd.ixobin;q=1", MimeTypeID::ixobin},
        {"text/html", MimeTypeID::json},
    };
    bridge.script = "nn";
    for (const Case& c : cases) {
        for (const auto& [accept, encoding] : accepts) {
            for (const bool once : {false, true}) {
                SCOPED_TRACE(c.command + (" " + c.path) + " as " + accept);
                auto asked = request(c.command, c.path, takesBody(c.command) ? insertBody : "");
                asked.setAccept(accept);
                asked.setOneShot(once);
                answers.finishOnNext = once;
                ask(asked);
                EXPECT_EQ(bridge.oneShot, once);
                EXPECT_THAT(std::exchange(bridge.finished, {}), ElementsAre(once, once)) << "what the responder says goes";
                ASSERT_EQ(answers.responses.size(), 2U);
                for (const auto& response : std::exchange(answers.responses, {})) {
                    EXPECT_EQ(response.status(), c.answer.empty() ? 204 : 200);
                    EXPECT_EQ(response.clientId(), "client-1");
                    if (c.answer.empty()) {
                        EXPECT_TRUE(response.payload().empty());
                    } else if (encoding == MimeTypeID::json) {
                        EXPECT_EQ(response.payload().text(), c.answer);
                        EXPECT_EQ(response.getMimeTypeText(), json);
                    } else {
                        EXPECT_EQ(response.payload().mimeType().id(), encoding);
                        EXPECT_EQ(valueOf(encoding, response.payload().text()), valueOf(MimeTypeID::json, c.answer));
                    }
                }
            }
        }
    }
}

TEST_F(ResourceServices, WhatEndsARequestGoesToItsClient) {
    struct Case {
        const char* script;
        Lines events;
    };
    const std::string url = R"(next 200 application/json "/popup" to client-1)";
    const Case cases[] = {
        {"", {"gone"}},
        {"n", {url, "gone"}},
        {"nnc", {url, url, "completed", "gone"}},
        {"e", {"error 418 plain/text upstream's own words to client-1", "gone"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        bridge.script = c.script;
        EXPECT_EQ(ask(request("update", "/popups/" + idText, "{}")), bridge.handle());
        EXPECT_EQ(answers.take(), c.events);
    }
}

TEST_F(ResourceServices, AValueThatCannotBeWrittenIsNotSentAndEndsTheRequest) {
    TracedLines traced{"KELO_HMX_DISPLAYSSERVICE"};
    static int unhandled = 0;
    const std::ErrorStorage storage{[](const std::ErrorEntry& /*entry*/) { ++unhandled; }};
    bridge.script = "n";
    bridge.displaySample.resolution = std::shared_ptr<DisplayResolutionType>{};
    EXPECT_EQ(ask(request("retrieve", "/displays/" + idText)), bridge.handle());
    EXPECT_THAT(std::exchange(bridge.finished, {}), ElementsAre(true));
    EXPECT_THAT(answers.take(), ElementsAre("gone"));
    EXPECT_EQ(std::ErrorStorage::current().category, &kelo::errors::Error);
    EXPECT_EQ(std::ErrorStorage::current().code, 13);
    EXPECT_EQ(unhandled, 0) << "what was wrong with the value is part of that error";
    EXPECT_EQ(std::ErrorStorage::takeReason(), "retrieveDisplayObject: serialization error");

    bridge.displaySample = display();  // nothing of the failed answer may be left in the next one
    ask(request("retrieve", "/displays/" + idText));
    EXPECT_THAT(answers.take(), ElementsAre("next 200 application/json " + displayJson + " to client-1", "gone"));
}

TEST_F(ResourceServices, SendingMayComeRoundToAnotherAnswer) {
    bridge.script = "n";
    answers.then = [this] { ask(request("retrieve", "/popups/" + idText)); };
    ask(request("retrieve", "/displays/" + idText));
    EXPECT_THAT(answers.take(), ElementsAre("next 200 application/json " + popupJson + " to client-1", "gone",
                                            "next 200 application/json " + displayJson + " to client-1", "gone"));
}

}  // namespace
