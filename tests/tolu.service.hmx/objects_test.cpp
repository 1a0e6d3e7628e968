#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kelo/errors.h"
#include "samples.h"
#include "support/documents.h"

namespace {

using namespace samples;
using support::MimeTypeID;

constexpr MimeTypeID encodings[] = {MimeTypeID::json, MimeTypeID::msgpack, MimeTypeID::ixobin};

template <class T>
void expectDocument(const T& value, const std::string& json) {
    SCOPED_TRACE(json);
    EXPECT_EQ(support::toJson(value), json);
    EXPECT_TRUE(kelo::record::equal(support::fromJson<T>(json), value));
    for (const MimeTypeID encoding : encodings) {
        std::string document;
        T back{};
        EXPECT_EQ(support::writeDocument(encoding, value, document), "");
        EXPECT_EQ(support::readDocument(encoding, document, back), "");
        EXPECT_TRUE(kelo::record::equal(back, value)) << kelo::mimetypes::id2typename(encoding);
    }
}

TEST(ResourceObjects, FullObjectsAndBareOnesHaveExactlyTheseDocuments) {
    expectDocument(display(), displayJson);
    expectDocument(displayable(), displayableJson);
    expectDocument(layers(), layersJson);
    expectDocument(regionconfiguration(), regionconfigurationJson);
    expectDocument(popup(), popupJson);
    expectDocument(updatePopup(), updatePopupJson);
    expectDocument(insertRegionconfiguration(), insertRegionconfigurationJson);
    expectDocument(updateRegionconfiguration(), updateRegionconfigurationJson);

    const auto bareJson = [](const std::string& resource) {
        return R"({"id":")" + idText + R"(","name":"","uri":"/hmx/)" + resource + "/" + idText + R"("})";
    };
    expectDocument(bare<DisplayObject>(), bareJson("displays"));
    expectDocument(bare<DisplayableObject>(), bareJson("displayables"));
    expectDocument(bare<LayerconfigurationObject>(), bareJson("layerconfigurations"));
    expectDocument(bare<RegionconfigurationObject>(), bareJson("regionconfigurations"));
    expectDocument(bare<PopupObject>(), bareJson("popups"));
    expectDocument(UpdatePopupObject{}, "{}");
    expectDocument(InsertRegionconfigurationObject{.regions = shared(HapticAndInputInfoPerHMIType{}), .subComponent = {}},
                   R"({"display":"Co_Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","regions":{}})");
    expectDocument(UpdateRegionconfigurationObject{.regions = shared(HapticAndInputInfoPerHMIType{})}, R"({"regions":{}})");

    DisplayObjectListPage page = pageOf(bare<DisplayObject>());
    expectDocument(page, pageJson(bareJson("displays")));
    page.data.clear();
    page.total = 12;
    page.totalPages = 3;
    page.next = kelo::toluglobals::RequestHint{.limit = 5, .offset = 10, .offsetId = {}};
    page.offset = 5;
    expectDocument(page, R"({"next":{"limit":5,"offset":10},"total":12,"totalPages":3,"offset":5,"data":[]})");
    page.previous = kelo::toluglobals::RequestHint{.limit = {}, .offset = 0, .offsetId = {}};
    page.offsetId = bare<DisplayObject>().id;
    expectDocument(page, R"({"previous":{"offset":0},"next":{"limit":5,"offset":10},"total":12,"totalPages":3,"offset":5,)"
                         R"("offsetId":")" +
                             idText + R"(","data":[]})");
}

TEST(ResourceObjects, NullsAndValuesOutOfRangeAreNotWritten) {
    DisplayObject nullResolution = display();
    nullResolution.resolution = std::shared_ptr<DisplayResolutionType>{};
    LayerconfigurationObject nullLayer = layers();
    nullLayer.layers->push_back(nullptr);
    InsertRegionconfigurationObject noRegions = insertRegionconfiguration();
    noRegions.regions = nullptr;
    RegionconfigurationObject strangeDisplay = regionconfiguration();
    strangeDisplay.display = static_cast<RegionconfigurationObjectDisplayEnum>(2);
    InsertRegionconfigurationObject strangeHmi = insertRegionconfiguration();
    strangeHmi.hmi = static_cast<RegionconfigurationObjectHmiEnum>(255);

    std::string document;
    const auto failure = [&document](MimeTypeID encoding, const auto& value) {
        return support::writeDocument(encoding, value, document);
    };
    for (const MimeTypeID encoding : encodings) {
        EXPECT_EQ(failure(encoding, nullResolution), "std::shared_ptr");
        EXPECT_EQ(failure(encoding, nullLayer), "std::shared_ptr");
        EXPECT_EQ(failure(encoding, noRegions), "std::shared_ptr");
        EXPECT_EQ(failure(encoding, UpdateRegionconfigurationObject{}), "std::shared_ptr");
        EXPECT_NE(failure(encoding, strangeDisplay), "");
        EXPECT_NE(failure(encoding, strangeHmi), "");
    }
}

template <class T>
std::string reread(const std::string& json) {
    T value{};
    const std::string reason = support::readDocument(MimeTypeID::json, json, value);
    return reason.empty() ? support::toJson(value) : "! " + reason;
}

TEST(ResourceObjects, ReadingIsLenientAboutKeysAndStrictAboutValues) {
    struct Case {
        std::string (*read)(const std::string&);
        std::string json;
        std::string expected;  // the document written again, or "! " and the beginning of the reason
    };
    const std::string insert = R"("display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","regions":{})";
    const Case cases[] = {
        {reread<UpdatePopupObject>, R"({"visible":null,"requested":true})", R"({"requested":true})"},
        {reread<UpdatePopupObject>, R"({"extra":{"a":[1,{}]},"visible":true,"more":0})", R"({"visible":true})"},
        {reread<UpdatePopupObject>, R"({"visible":true,"requestData":"a","visible":false,"requestData":"b"})",
         R"({"requestData":"b","visible":false})"},
        {reread<UpdatePopupObject>, R"({"visible":true,"visible":null})", "{}"},
        {reread<UpdatePopupObject>, R"({"Visible":true,"visible ":true})", "{}"},
        {reread<UpdatePopupObject>, R"({"visible":1})", "! visible: "},
        {reread<UpdatePopupObject>, R"({"requestData":true})", "! requestData: "},
        {reread<DisplayObject>, R"({"terminal":1,"uri":"u","name":"n","id":"19243473-0126-5f4b-b1bf-4879152C72E5"})",
         R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"n","uri":"u","terminal":1})"},
        {reread<DisplayObject>, R"({"id":"nonsense","name":"n","uri":"u"})", "! id: "},
        {reread<DisplayObject>, R"({"displayID":2147483648})", "! displayID: "},
        {reread<DisplayObject>, R"({"resolution":{"width":"1"}})", "! resolution.width: "},
        {reread<LayerconfigurationObject>, R"({"layers":[{"id":1},{"id":2},{"id":true}]})", "! layers[2].id: "},
        {reread<InsertRegionconfigurationObject>, "{" + insert + "}", "{" + insert + "}"},
        {reread<InsertRegionconfigurationObject>, R"({"subComponent":null,)" + insert + "}", "{" + insert + "}"},
        {reread<InsertRegionconfigurationObject>, R"({"hmi":"HMI_ID_ANDROID_DRIVER","regions":{}})", "! display: "},
        {reread<InsertRegionconfigurationObject>, R"({"display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER"})", "! regions: "},
        {reread<InsertRegionconfigurationObject>, "{" + insert + R"(,"regions":null})", "! regions: "},
        {reread<InsertRegionconfigurationObject>, "{" + insert + R"(,"display":"Lower_Display"})", "! display: "},
        {reread<InsertRegionconfigurationObject>, "{" + insert + R"(,"display":1})", "! display: "},
        {reread<InsertRegionconfigurationObject>, "{" + insert + R"(,"hmi":"HMI_ID_ANDROID"})", "! hmi: "},
        {reread<UpdateRegionconfigurationObject>, R"({"regions":null})", "! regions: "},
        {reread<UpdateRegionconfigurationObject>, R"({"regions":{"infoForAllLayers":null}})", R"({"regions":{}})"},
        {reread<UpdateRegionconfigurationObject>,
         R"({"regions":{"infoForAllLayers":[{},{"inputRegions":[{"bounds":{"upperLeftPoint":{"posY":0.5}}}]}]}})",
         "! regions.infoForAllLayers[1].inputRegions[0].bounds.upperLeftPoint.posY: "},
        {reread<UpdateRegionconfigurationObject>, R"({"regions":{"infoForAllLayers":[null]}})",
         "! regions.infoForAllLayers[0]: "},
        {reread<UpdateRegionconfigurationObject>, R"({"regions":{"infoForAllLayers":[{"inputRegions":[{"hitOutside":true}]}]}})",
         "! regions.infoForAllLayers[0].inputRegions[0].hitOutside: "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.json);
        if (c.expected.front() == '!') {
            EXPECT_THAT(c.read(c.json), testing::StartsWith(c.expected));
        } else {
            EXPECT_EQ(c.read(c.json), c.expected);
        }
    }
    EXPECT_EQ(support::fromJson<RegionconfigurationObject>(regionconfigurationJson).display,
              static_cast<RegionconfigurationObjectDisplayEnum>(1));
}

}  // namespace
