#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <new>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "hmx/displaymanager/displayables_client.h"
#include "hmx/displaymanager/displays_client.h"
#include "hmx/displaymanager/layer_config_client.h"
#include "hmx/inputregions/hmx_inputregions_client.h"
#include "hmx/popups/hmx_popups_client.h"
#include "kelo/errors.h"
#include "kelo/serializer/basic.h"
#include "kelo/tracing.h"
#include "support/documents.h"
#include "support/fake_kelo_api.h"
#include "support/recording_handler.h"
#include "support/traced_lines.h"

namespace {

using namespace kelo::hmx;
using displaymanager::DisplayablesClient;
using displaymanager::DisplaysClient;
using displaymanager::LayerConfigClient;
using inputregions::Hmx_inputregionsClient;
using popups::Hmx_popupsClient;
using support::FakeKeloApi;
using support::Heard;
using support::MimeTypeID;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using Ends = std::vector<std::string>;

const std::string json = "application/json";

// One operation, as a bridge sees it and as the upstream service sees it.
struct Operation {
    std::string name;
    std::string servicePath;
    std::string command;
    std::string path;
    std::string body;    // JSON; "" for none
    std::string answer;  // JSON; "" if the handler gets no value
    // Calls the operation on a client of its own, lets `answers` answer, and returns what the handler received, as JSON.
    std::function<std::vector<std::string>(FakeKeloApi&, const std::string& mimeType, const std::function<void()>& answers)> run;
};

// `args`: the operation's arguments except the handler and the body, which is made from the JSON.
template <class Client, class Result, class... Params, class... Args>
Operation operation(std::string name, std::string servicePath, std::string command, std::string path,
                    void* (Client::*member)(std::unique_ptr<kelo::IResponseHandler<Result>>&&, Params...), std::string body,
                    std::string answer, Args... args) {
    auto run = [=](FakeKeloApi& api, const std::string& mimeType, const std::function<void()>& answers) {
        Heard<Result> heard;
        Client client{&api, mimeType};
        void* handle = nullptr;
        if constexpr (sizeof...(Params) > sizeof...(Args)) {
            using Body = std::decay_t<std::tuple_element_t<sizeof...(Params) - 1, std::tuple<Params...>>>;
            handle = (client.*member)(support::record(heard), args..., support::fromJson<Body>(body));
        } else {
            handle = (client.*member)(support::record(heard), args...);
        }
        EXPECT_EQ(handle, api.sent.empty() ? nullptr : api.sent.back().handle);
        answers();
        std::vector<std::string> result;
        for (const Result& value : heard.values) {
            if constexpr (std::is_null_pointer_v<Result>) {
                result.push_back("");
            } else {
                result.push_back(support::toJson(value));
            }
        }
        for (auto& end : heard.ends()) result.push_back(std::move(end));
        for (auto& sent : api.sent) sent.handler.reset();  // handlers that are still open refer to `heard`
        return result;
    };
    return {name, servicePath, command, path, body, answer, run};
}

// Every key of every record, in wire order.
const std::string layers = R"([{"id":3,"name":"map","active":true,"zpos":-2},{"id":4}])";
const std::string display =
    R"({"id":1,"internalid":2,"name":"Driver_Display","touchSupport":true,"terminal":3,"compositing":false,)"
    R"("resolution":{"width":1920,"height":720},"updateRate":60,"activelayers":)" +
    layers +
    R"(,"timings":{"flags":1,"hskew":2,"hsync_start":3,"hsync_end":4,"htotal":5,"vrefresh":6,"vscan":7,"vsync_start":8,)"
    R"("vsync_end":9,"vtotal":10},"connector":"DP-1","planes":{"alpha":0.5,"type":1,"zpos":2}})";
const std::string displayable =
    R"({"id":7,"name":"map","type":2,"size":{"width":640,"height":480},"is_active":true,"is_visible":false,"layers":)" + layers +
    "}";
const std::string displayLayers = R"({"display":)" + display + R"(,"layers":{"infoForAllLayers":)" + layers + "}}";
const std::string inputRegions =
    R"([{"regionID":1,"hmiName":"HMI","layer":"map","bounds":{"pointMin":{"x":1,"y":2},"width":3,"height":4},"exclusive":true,)"
    R"("keepFocus":false,"hitOutside":{"x":5,"y":6},"notifyOutside":true,"dropEvent":false,"translateInput":true,"translateX":7,)"
    R"("translateY":8}])";
const std::string hapticRegions =
    R"([{"hapticRegion":1,"hmiName":"HMI","layer":"map","bounds":{"pointMin":{},"width":0,"height":-1},"hapticFeedback":2}])";
const std::string sortedRegions = R"({"regionInfoSorted":)" + inputRegions + R"(,"hapticInfoSorted":)" + hapticRegions + "}";
const std::string regionsOfHmi = R"({"subComponent":"keys","infoForAllLayers":[{"layer":"map","inputRegions":)" + inputRegions +
                                 R"(,"hapticRegions":)" + hapticRegions + "},{}]}";
const std::string popup =
    R"({"name":"call","popupLayerLogical":"l","priorityInlayer":5,"popupLayerCompositing":"c","slot":"s","isFullscreen":true,)"
    R"("requested":false,"suppressed":true,"active":false,"visible":true,"preventAnimation":false,"requestData":"d",)"
    R"("wakeupFromOnNoDisplay":true,"wakeupFromStandby":false,"wakeupFromStandbyRestricted":true})";
const std::string popupFilter =
    R"({"slot":"s","isFullscreen":true,"requested":false,"active":true,"visible":false,"wakeupFromOnNoDisplay":true,)"
    R"("wakeupFromStandby":false,"wakeupFromStandbyRestricted":true})";
const std::string popupUpdate = R"({"requested":true,"visible":false,"requestData":"d"})";
const std::string displayUpdate =
    R"({"compositing":true,"updateRate":30,"takeScreenshot":{"outputDirectory":"/tmp","type":"png","filename":"a","addDisplayToFilename":true,)"
    R"("addTimestampToFilename":false}})";
const std::string displayableUpdate = R"({"is_visible":true,"layers":)" + layers + "}";
const std::string trigger = R"({"hapticTone":true,"hapticTactile":false,"hapticFeedback":3,"point":{"x":1,"y":2}})";

std::vector<Operation> operations() {
    using Displays = DisplaysClient;
    using Displayables = DisplayablesClient;
    using Layers = LayerConfigClient;
    using Input = Hmx_inputregionsClient;
    using Popups = Hmx_popupsClient;
    const std::string dm = "/hmxdisplaymanager", im = "/hmxinputmanager", pm = "/hmxpopupmanager";
    const std::string get = "retrieve", set = "update", none;
    const std::string displays = R"({"infoForAllDisplays":[)" + display + "]}";
    const std::string displayables = R"({"infoForAllDisplayables":[)" + displayable + "]}";
    const std::string layerConfigs = R"([{"layersForDisplay":)" + displayLayers + "},{}]";
    const std::string shutter = R"({"shutterActive":true,"status":"STATUS_ERROR"})";
    const std::string force = R"({"forceSupported":false,"status":"STATUS_INIT"})";
    const std::string noRegions = R"({"infoForAllLayers":[]})";
    const std::string popups = "[" + popup + R"(,{"name":""}])";
    return {
        operation("getDisplays", dm, get, "/displays", &Displays::getDisplays, none, displays),
        operation("getDisplay", dm, get, "/displays/a%2Fb", &Displays::getDisplay, none, display, "a/b"),
        operation("updateDisplay", dm, set, "/displays/X", &Displays::updateDisplay, displayUpdate, none, "X"),
        operation("getDisplayables", dm, get, "/displayables", &Displayables::getDisplayables, none, displayables),
        operation("getDisplayable", dm, get, "/displayables/7", &Displayables::getDisplayable, none, displayable, 7),
        operation("updateDisplayable", dm, set, "/displayables/-7", &Displayables::updateDisplayable, displayableUpdate, none,
                  -7),
        operation("getLayerConfigs", dm, get, "/layerConfig", &Layers::getLayerConfigs, none, layerConfigs),
        operation("getLayerConfig", dm, get, "/layerConfig/X", &Layers::getLayerConfig, none, displayLayers, "X"),
        operation("updateLayerConfig", dm, get, "/layerConfig/X", &Layers::updateLayerConfig, none, displayLayers, "X"),
        operation("getActiveProximity", im, get, "/D/proximity", &Input::getActiveProximity, none, "true", "D"),
        operation("getActiveShutter", im, get, "/D/shutter", &Input::getActiveShutter, none, shutter, "D"),
        operation("getActiveForce", im, get, "/D/force", &Input::getActiveForce, none, force, "D"),
        operation("getInputRegionsForDisplay", im, get, "/D", &Input::getInputRegionsForDisplay, none, sortedRegions, "D"),
        operation("getInputRegionsForHMI", im, get, "/D/H", &Input::getInputRegionsForHMI, none, sortedRegions, "D", "H"),
        operation("setPower", im, set, "/D/power", &Input::setPower, "true", none, "D"),
        operation("setProximityActive", im, set, "/D/proximity", &Input::setProximityActive, "false", none, "D"),
        operation("setShutterActive", im, set, "/D/shutter", &Input::setShutterActive, "true", none, "D"),
        operation("triggerHapticFeedback", im, set, "/D/hapticfeedback", &Input::triggerHapticFeedback, trigger, none, "D"),
        operation("updateInputRegions", im, set, "/D/H", &Input::updateInputRegions, regionsOfHmi, none, "D", "H"),
        operation("updateInputRegions to none", im, set, "/D/H", &Input::updateInputRegions, noRegions, none, "D", "H"),
        operation("getPopups", pm, get, "/D", &Popups::getPopups, popupFilter, popups, "D"),
        operation("getPopup", pm, get, "/D/incoming call", &Popups::getPopup, none, popup, "D", "incoming call"),
        operation("updatePopupState", pm, set, "/D/call", &Popups::updatePopupState, popupUpdate, popup, "D", "call"),
    };
}

util::config::Value valueOf(MimeTypeID id, std::string_view document) {
    util::config::Value value;
    const auto reader = kelo::serializer::Factory::createDeserializer(id);
    EXPECT_FALSE(reader->start(util::ByteBufferReader{document}) || kelo::serializer::deserialize(*reader, value) ||
                 reader->finish())
        << std::ErrorStorage::takeReason();
    return value;
}

std::string encoded(MimeTypeID id, const std::string& document) {
    util::ByteBufferWriter bytes;
    const auto writer = kelo::serializer::Factory::createSerializer(id);
    EXPECT_FALSE(writer->start(bytes) || kelo::serializer::serialize(*writer, valueOf(MimeTypeID::json, document)) ||
                 writer->finish())
        << std::ErrorStorage::takeReason();
    return {bytes.bytes().begin(), bytes.bytes().end()};
}

TEST(UpstreamClients, EachOperationIsOneRequestAndItsAnswer) {
    for (const Operation& op : operations()) {
        for (const MimeTypeID id : {MimeTypeID::json, MimeTypeID::msgpack, MimeTypeID::ixobin}) {
            const std::string mimeType{kelo::mimetypes::id2typename(id)};
            SCOPED_TRACE(op.name + " " + mimeType);
            FakeKeloApi api;
            const auto heard = op.run(api, mimeType, [&] {
                api.next(0, op.answer.empty() ? "" : encoded(id, op.answer), op.answer.empty() ? "" : mimeType);
            });
            EXPECT_EQ(heard, std::vector<std::string>{op.answer});
            ASSERT_THAT(api.sent, SizeIs(1));
            const kelo::Request& request = api.sent[0].request;
            EXPECT_EQ(request.command(), op.command);
            EXPECT_EQ(request.path(), op.path);
            EXPECT_EQ(request.servicePath(), op.servicePath);
            EXPECT_EQ(request.clientId(), kelo::tracing::getTraceClientId());
            EXPECT_EQ(request.authToken(), "uid=" + std::to_string(::geteuid()));
            EXPECT_EQ(request.getMimeTypeHeader(), mimeType);
            ASSERT_NE(request.options(), nullptr);
            EXPECT_TRUE(request.options()->empty());
            EXPECT_EQ(request.payload().empty(), op.body.empty());
            if (op.body.empty()) continue;
            EXPECT_EQ(valueOf(id, request.payload().text()), valueOf(MimeTypeID::json, op.body));
            if (id == MimeTypeID::json) {
                EXPECT_EQ(request.payload().text(), op.body);
            }
        }
    }
}

TEST(UpstreamClients, UpstreamEventsReachTheHandlerAsTheyAre) {
    for (const Operation& op : operations()) {
        SCOPED_TRACE(op.name);
        FakeKeloApi api;
        EXPECT_THAT(op.run(api, json, [&] { api.error(0, 418, "upstream's own words"); }),
                    ElementsAre("418 upstream's own words"));
        EXPECT_THAT(op.run(api, json, [&] { api.completed(1); }), ElementsAre("completed"));
        api = {};
        api.refuseWith = 503;
        EXPECT_THAT(op.run(api, json, [] {}), ElementsAre("503 service gone, not sent"));
    }
}

TEST(UpstreamClients, AnAnswerThatDoesNotDecodeIsAnError) {
    struct Case {
        const char* mimeType;
        const char* body;
        int code;
        const char* reason;  // null: the type's name, ": " and the reader's text
    };
    const Case cases[] = {
        {"text/html", "{}", 16, "text/html"},
        {"plain/text", "true", 16, "plain/text"},
        {"", "{}", 16, "no mime type"},
        {"", "", 16, "no mime type"},
        {"application/json", "", 11, nullptr},
        {"application/json", "{\"id\":1", 11, nullptr},
        {"application/json", "{\"id\":1}{}", 11, nullptr},
        {"application/json", "{\"id\":\"1\"}", 11, nullptr},
        {"application/json", "{\"name\":\"no id\"}", 11, nullptr},
        {"application/vnd.msgpack", "\xc1", 11, nullptr},
        {"application/vnd.ixobin", "\xff", 11, nullptr},
    };
    const std::string whose = " (/hmxdisplaymanager, retrieve /displays/*)";
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string{c.mimeType} + " " + c.body);
        displaymanager::Display decoded;
        const kelo::Response answer{200, kelo::Payload::copyOf(c.body, kelo::MimeType{c.mimeType})};
        EXPECT_TRUE(kelo::decodeResponse(answer, kelo::ResultView::of(decoded), {"retrieve", "/displays/*", "Display"},
                                         "/hmxdisplaymanager"));
        EXPECT_EQ(std::ErrorStorage::current().category, &kelo::errors::Error);
        EXPECT_EQ(std::ErrorStorage::current().code, c.code);
        const std::string reason = std::ErrorStorage::takeReason();
        if (c.reason != nullptr) {
            EXPECT_EQ(reason, c.reason + whose);
        } else {
            EXPECT_THAT(reason, AllOf(StartsWith("Display: "), EndsWith(whose)));
            EXPECT_GT(reason.size(), ("Display: " + whose).size());
        }

        FakeKeloApi api;
        Heard<displaymanager::Display> heard;
        DisplaysClient{&api, json}.getDisplay(support::record(heard), "X");
        EXPECT_TRUE(api.next(0, answer));
        EXPECT_THAT(heard.values, IsEmpty());
        EXPECT_EQ(heard.ends(), Ends{"500 " + reason});
        EXPECT_FALSE(std::ErrorStorage::hasError());
        EXPECT_EQ(api.open(), 0U);
    }
}

TEST(UpstreamClients, MemoryThatRunsOutIsAnErrorThatNamesTheAnswer) {
    int value = 0;
    const kelo::Response answer{200, kelo::Payload::copyOf("7", kelo::MimeType{json})};
    const kelo::ResultView throws{&value, [](auto&, void*) -> bool { throw std::bad_alloc{}; }};
    EXPECT_TRUE(kelo::decodeResponse(answer, throws, {"retrieve", "/*", "Popup"}, "/hmxpopupmanager"));
    EXPECT_EQ(std::ErrorStorage::takeReason(), "Popup: out of memory (/hmxpopupmanager, retrieve /*)");
}

TEST(UpstreamClients, TheLogNamesAServiceWhoseAnswersDoNotRead) {
    support::TracedLines log{"KELO_CLIENT"};
    FakeKeloApi api;
    Heard<displaymanager::Display> heard;
    DisplaysClient{&api, json}.getDisplay(support::record(heard), "X");
    api.next(0, "7");
    EXPECT_THAT(log.take(), ElementsAre(StartsWith("3 /hmxdisplaymanager sent an answer that does not read: Display: ")));
}

TEST(UpstreamClients, DecodingErrorsNameTheType) {
    const std::pair<const char*, const char*> names[] = {
        {"getDisplays", "DisplaysInfo"},     {"getDisplayables", "DisplayablesInfo"},
        {"getDisplayable", "Displayable"},   {"getLayerConfigs", "DisplayLayersArray"},
        {"getLayerConfig", "DisplayLayers"}, {"updateLayerConfig", "DisplayLayers"},
        {"getPopups", "std::vector<Popup>"}, {"getPopup", "Popup"},
        {"updatePopupState", "Popup"},
    };
    for (const Operation& op : operations()) {
        for (const auto& [operationName, typeName] : names) {
            if (op.name != operationName) continue;
            FakeKeloApi api;
            EXPECT_THAT(op.run(api, json, [&] { api.next(0, "7"); }),
                        ElementsAre(StartsWith("500 " + std::string{typeName} + ": ")));
        }
    }
    FakeKeloApi api;
    Heard<displaymanager::DisplayLayers> heard;
    LayerConfigClient{&api, json}.getLayerConfig(support::record(heard), "X");
    api.next(0, R"({"layers":{"infoForAllLayers":[{"id":1},{"id":2,"zpos":"top"}]}})");
    EXPECT_THAT(heard.ends(), ElementsAre(HasSubstr("DisplayLayers: layers.infoForAllLayers[1].zpos: ")));
}

TEST(UpstreamClients, ABodyThatCannotBeWrittenIsNotSent) {
    const std::string noText = "\xff";
    const auto refused = [](auto call, const std::string& mimeType) {
        FakeKeloApi api;
        Heard<std::nullptr_t> heard;
        EXPECT_EQ(call(api, mimeType, support::record(heard)), kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE);
        EXPECT_THAT(api.sent, IsEmpty());
        EXPECT_THAT(heard.values, IsEmpty());
        EXPECT_EQ(heard.destroyed, 1);
        EXPECT_FALSE(std::ErrorStorage::hasError());
        return heard.ends();
    };
    const auto updateDisplay = [&](auto& api, const std::string& mimeType, auto handler) {
        displaymanager::DisplayUpdate update;
        update.takeScreenshot = std::make_shared<displaymanager::Screenshot>();
        update.takeScreenshot->filename = noText;
        return DisplaysClient{&api, mimeType}.updateDisplay(std::move(handler), "X", update);
    };
    const auto updateRegions = [&](auto& api, const std::string& mimeType, auto handler) {
        inputregions::HapticAndInputInfoPerHMI info;
        info.infoForAllLayers.emplace_back().layer = noText;
        return Hmx_inputregionsClient{&api, mimeType}.updateInputRegions(std::move(handler), "D", "H", info);
    };
    for (const std::string mimeType : {"application/json", "application/vnd.msgpack", "application/vnd.ixobin"}) {
        SCOPED_TRACE(mimeType);
        EXPECT_THAT(refused(updateDisplay, mimeType), ElementsAre(StartsWith("400 ")));
        EXPECT_THAT(refused(updateRegions, mimeType), ElementsAre(StartsWith("400 ")));
    }
    EXPECT_THAT(refused(updateDisplay, "text/html"), ElementsAre("400 text/html"));
}

TEST(UpstreamClients, ANullInAListOfPointersCannotBeWritten) {
    displaymanager::Display withNull;
    withNull.activelayers = std::vector<std::shared_ptr<displaymanager::Layer>>{nullptr};
    std::string document;
    EXPECT_THAT(support::writeDocument(MimeTypeID::json, withNull, document), HasSubstr("std::shared_ptr"));
}

TEST(UpstreamClients, AStreamOfAnswersIsPassedOnUntilTheHandlerHasEnough) {
    FakeKeloApi api;
    Heard<popups::Popup> heard;
    heard.oneShot = true;
    Hmx_popupsClient{&api, json}.getPopup(support::record(heard), "D", "call");  // the answers outlive the client
    EXPECT_TRUE(api.sent[0].handler->isOneShot());
    EXPECT_FALSE(api.next(0, R"({"name":"one"})"));
    heard.finishOnNext = true;
    EXPECT_TRUE(api.next(0, R"({"name":"two","visible":true})"));
    ASSERT_THAT(heard.values, SizeIs(2));
    EXPECT_EQ(heard.values[0].name, "one");
    EXPECT_EQ(heard.values[1].name, "two");
}

}  // namespace
