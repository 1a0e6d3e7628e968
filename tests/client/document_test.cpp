#include "hmx/client/document.h"

#include <gtest/gtest.h>

#include <functional>

#include "hmx/client/resources.h"
#include "hmx/client/schema.h"
#include "hmx/display_object.h"
#include "hmx/insert_regionconfiguration_object.h"
#include "kelo/serializer/factory.h"
#include "kelo/uuid.h"

namespace hmx::client {
namespace {

constexpr const char* mimeTypes[] = {"application/json", "application/vnd.msgpack", "application/vnd.ixobin"};

std::string reasonOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return "";
}

TEST(Document, IsTheSameFromEveryEncoding) {
    const std::string text =
        R"({"b":1,"a":-9223372036854775808,"c":9223372036854775807,"list":[[],{},null,true,2.5,"ü\"\\"],"z":{"deep":{"x":1e+300}}})";
    const Json document = Json::parse(text);
    for (const char* mimeType : mimeTypes) {
        const kelo::Payload payload = encode(document, mimeType);
        EXPECT_EQ(compact(decode(payload)), compact(document)) << mimeType;
    }
    EXPECT_NE(reasonOf([] { (void)encode(Json::parse("18446744073709551615"), "application/json"); }), "");
}

// A record as the services write it: ids and URIs have types of their own in the binary form, and floats are single.
TEST(Document, ShowsUuidsUrlsAndFloatsAsTheirText) {
    for (const char* mimeType : mimeTypes) {
        const auto writer = kelo::serializer::Factory::createSerializer(kelo::mimetypes::typename2id(mimeType));
        util::ByteBufferWriter bytes;
        std::UUID id;
        ASSERT_TRUE(std::UUID::parse("19243473-0126-5f4b-b1bf-4879152c72e5", id));
        ASSERT_FALSE(writer->start(bytes) || writer->beginArray() || writer->beginElement(true) || writer->writeUuid(id) ||
                     writer->endElement() || writer->beginElement(false) || writer->writeUrl(kelo::url{"/hmx/displays/1"}) ||
                     writer->endElement() || writer->beginElement(false) || writer->writeFloat(59.94F) || writer->endElement() ||
                     writer->beginElement(false) || writer->writeDouble(0.1) || writer->endElement() || writer->endArray() ||
                     writer->finish());
        const kelo::Payload payload = kelo::Payload::copyOf(bytes.bytes(), kelo::MimeType{std::string_view{mimeType}});
        EXPECT_EQ(jsonText(payload), R"(["19243473-0126-5f4b-b1bf-4879152c72e5","/hmx/displays/1",59.94,0.1])") << mimeType;
    }
}

TEST(Document, JsonIsPrintedAsItCame) {
    const auto payload = [](std::string_view text) {
        return kelo::Payload::copyOf(text, kelo::MimeType{std::string_view{"application/json"}});
    };
    EXPECT_EQ(jsonText(payload("{ \"a\" : 1.00,\n \"b\": \"\\u00fc\" }\n")), "{ \"a\" : 1.00,\n \"b\": \"\\u00fc\" }");
    EXPECT_EQ(jsonText(kelo::Payload{}), "null");
    EXPECT_EQ(jsonText(kelo::Payload::copyOf("just text", kelo::MimeType{std::string_view{"plain/text"}})), "\"just text\"");
    for (const char* broken : {"{\"a\":", "{} {}", "\xFF", "[1,]"}) {
        EXPECT_NE(reasonOf([&] { (void)jsonText(payload(broken)); }).find("not a readable application/json document"),
                  std::string::npos)
            << broken;
    }
}

TEST(CheckBody, NamesThePathOfTheBadField) {
    const std::vector<std::pair<const char*, const char*>> cases{
        {R"({"display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","regions":{}})", ""},
        {R"({"display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","regions":{"infoForAllLayers":null},"subComponent":null})",
         ""},
        {R"([])", "body: a InsertRegionconfigurationObject is an object, this is []"},
        {R"({"hmi":"HMI_ID_ANDROID_DRIVER","regions":{}})", "body: display: is required"},
        {R"({"display":null,"hmi":"HMI_ID_ANDROID_DRIVER","regions":{}})", "body: display: is required and cannot be null"},
        {R"({"display":"Lower_Display"})",
         R"(body: display: takes one of Co_Driver_Display, Driver_Display, not "Lower_Display")"},
        {R"({"dsplay":"Driver_Display"})", "body: dsplay: no such key in InsertRegionconfigurationObject"},
        {R"({"subComponent":7})", "body: subComponent: takes a string, not 7"},
        {R"({"regions":{"infoForAllLayers":{}}})",
         "body: regions.infoForAllLayers: takes an array of HapticAndInputInfoPerLayerType, not {}"},
        {R"({"regions":{"infoForAllLayers":[{"layer":"Map"},{"inputRegions":[{"bounds":{"widht":1}}]}]}})",
         "body: regions.infoForAllLayers[1].inputRegions[0].bounds.widht: no such key in RectangleType"},
        {R"({"regions":{"infoForAllLayers":[{"inputRegions":[{"translateX":2147483648}]}]}})",
         "body: regions.infoForAllLayers[0].inputRegions[0].translateX: takes an integer of 32 bits, not 2147483648"},
        {R"({"regions":{"infoForAllLayers":[{"inputRegions":[{"exclusive":"yes"}]}]}})",
         "body: regions.infoForAllLayers[0].inputRegions[0].exclusive: takes true or false, not \"yes\""},
        {R"({"regions":{"infoForAllLayers":[{"inputRegions":[{"hitOutside":true}]}]}})",
         "body: regions.infoForAllLayers[0].inputRegions[0].hitOutside: a PointType is an object, this is true"},
    };
    const Description& record = kelo::record::describe<kelo::hmx::InsertRegionconfigurationObject>();
    for (const auto& [body, reason] : cases) {
        EXPECT_EQ(reasonOf([body = body, &record] { checkBody(Json::parse(body), record, "body"); }), reason) << body;
    }
}

TEST(CheckMemberPath, FollowsRecords) {
    const Description& display = kelo::record::describe<kelo::hmx::DisplayObject>();
    for (const char* good : {"name", "resolution.width", "resolution"})
        EXPECT_EQ(reasonOf([&] { checkMemberPath(good, display, "e"); }), "");
    for (const char* bad : {"nme", "resolution.wdth", "name.x"})
        EXPECT_NE(reasonOf([&] { checkMemberPath(bad, display, "e"); }), "") << bad;
}

TEST(Resources, ComputeIdsFromNames) {
    // Computed independently: version 5 under the URL namespace.
    const std::vector<std::pair<const char*, const char*>> cases{
        {"displays Driver_Display", "19243473-0126-5f4b-b1bf-4879152c72e5"},
        {"displayables 1001", "8d505772-cff0-5ee4-b57d-f91ce8c49ddd"},
        {"displayables Map", ""},
        {"displayables 1001x", ""},
        {"layerconfigurations Driver_Display", "a8a59dda-1e57-56df-8839-c48ee9dcb923"},
        {"popups Driver_Display/Low_Fuel", "a5b0a4e2-9258-5946-a246-48c0591f2eda"},
        {"popups Low_Fuel", ""},
        {"popups Driver_Display/", ""},
        {"regionconfigurations Driver_Display/HMI_ID_ANDROID_DRIVER", "REGION"},
        {"regionconfigurations regionConfig_Driver_Display_HMI_ID_ANDROID_DRIVER_", "REGION"},
        {"regionconfigurations Driver_Display/HMI_ID_ANDROID_DRIVER/bar", "REGIONbar"},
        {"regionconfigurations regionConfig_Driver_Display_HMI_ID_ANDROID_DRIVER_bar", "REGIONbar"},
        {"regionconfigurations regionConfig_Driver_Display_HMI_ID_ANDROID_DRIVER_POPUP_", "REGION_POPUP"},
        {"regionconfigurations Driver_Display/HMI_ID_ANDROID_DRIVER_POPUP", "REGION_POPUP"},
        {"regionconfigurations Driver_Display/HMI_ID", ""},
        {"regionconfigurations Lower_Display/HMI_ID_ANDROID_DRIVER", ""},
    };
    for (const auto& [name, expected] : cases) {
        const std::string text{name};
        const std::size_t blank = text.find(' ');
        const std::optional<std::UUID> id = findResource(text.substr(0, blank))->idOf(text.substr(blank + 1));
        std::string want = expected;
        if (want.rfind("REGION", 0) == 0) {
            want = kelo::uuid::createFromName("Driver_DisplayHMI_ID_ANDROID_DRIVER" + want.substr(6)).toString();
        }
        EXPECT_EQ(id ? id->toString() : "", want) << name;
    }
}

}  // namespace
}  // namespace hmx::client
