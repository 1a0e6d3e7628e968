// What is reused for the next answer: elements, and the order in which ids were last recorded.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "bridge/display_conversion.h"
#include "bridge/id_table.h"
#include "bridge/popup_conversion.h"
#include "bridge/region_conversion.h"
#include "bridge/spare_elements.h"
#include "kelo/record.h"
#include "support/documents.h"

namespace {

namespace displaymanager = kelo::hmx::displaymanager;
using kelo::hmx::DisplayObject;

const hmx::Identity oneIdentity{std::UUID{{1}}, kelo::url{"/hmx/one"}};
const hmx::Identity otherIdentity{std::UUID{{2}}, kelo::url{"/hmx/other"}};

// Whatever the element was before, converting must make it equal to a new one.
template <class Element, class Upstream>
void expectMadeOver(const std::vector<const char*>& documents) {
    for (const char* before : documents) {
        for (const char* after : documents) {
            Element used;
            hmx::convert(support::fromJson<Upstream>(before), oneIdentity, used);
            hmx::convert(support::fromJson<Upstream>(after), otherIdentity, used);
            Element fresh;
            hmx::convert(support::fromJson<Upstream>(after), otherIdentity, fresh);
            EXPECT_TRUE(kelo::record::equal(used, fresh)) << before << " made over to " << after;
        }
    }
}

TEST(Conversion, NothingOfAnElementIsLeftInTheOneMadeOfIt) {
    expectMadeOver<DisplayObject, displaymanager::Display>(
        {R"({"id":1})",
         R"({"id":2,"internalid":3,"name":"Driver_Display","touchSupport":true,"terminal":4,"resolution":{"width":5,"height":6},)"
         R"("connector":"DP-1 with a name that needs memory of its own"})",
         R"({"id":7,"resolution":{"width":8}})"});
    expectMadeOver<kelo::hmx::DisplayableObject, displaymanager::Displayable>(
        {R"({"id":1})", R"({"id":2,"name":"Map","type":3,"size":{"width":4,"height":5}})"});
    expectMadeOver<kelo::hmx::LayerconfigurationObject, displaymanager::DisplayLayers>(
        {R"({})", R"({"layers":{"infoForAllLayers":[{"id":1,"name":"Map","zpos":2},{"id":3}]}})",
         R"({"layers":{"infoForAllLayers":[{"id":4}]}})"});
}

TEST(Conversion, AnElementThatSomebodyHoldsIsLeftAlone) {
    const auto wide = support::fromJson<displaymanager::Display>(R"({"id":1,"resolution":{"width":1920,"height":720}})");
    const auto narrow = support::fromJson<displaymanager::Display>(R"({"id":1,"resolution":{"width":800,"height":480}})");
    hmx::SpareElements<DisplayObject> spare;
    const auto page = [&](const displaymanager::Display& display, std::size_t count) {
        return spare.make([&](auto&& nextElement) {
            for (std::size_t i = 0; i < count; ++i) hmx::convert(display, oneIdentity, nextElement());
        });
    };
    auto elements = page(wide, 3);
    const auto held = elements[1];
    spare.keep(std::move(elements));
    elements = page(narrow, 2);
    ASSERT_EQ(elements.size(), 2U);
    EXPECT_NE(elements[1], held);
    EXPECT_EQ(held->resolution.value()->width.value(), 1920);
    EXPECT_EQ(elements[1]->resolution.value()->width.value(), 800);
    const auto other = elements[0];

    // If the element is not shared but its nested object is, that object must not be changed.
    const auto shared = *other->resolution;
    hmx::convert(wide, oneIdentity, *other);
    EXPECT_EQ(shared->width.value(), 800);
    EXPECT_EQ(other->resolution.value()->width.value(), 1920);
}

TEST(Conversion, WhateverIsNotTheFirstOfItsKindIsTheSecond) {
    using Display = kelo::hmx::RegionconfigurationObjectDisplayEnum;
    using Hmi = kelo::hmx::RegionconfigurationObjectHmiEnum;
    for (const int value : {-1, 0, 1, 2, 7}) {
        const hmx::RegionAddress address{static_cast<Display>(value), static_cast<Hmi>(value), {}};
        EXPECT_EQ(address.display, value == 1 ? "Driver_Display" : "Co_Driver_Display") << value;
        EXPECT_EQ(address.hmi, value == 0 ? "HMI_ID_ANDROID_DRIVER" : "HMI_ID_ANDROID_DRIVER_POPUP") << value;
    }
}

TEST(IdTable, ForgetsAllWhenThereAreTooManyAndBeginsAnew) {
    hmx::IdTable<std::string> ids{&hmx::displayIdName, &DisplayObject::elementUri};
    const std::UUID early = ids.record(std::string{"early"}).id;
    const std::string big(hmx::mostIdText - 10, 'x');
    EXPECT_EQ(*ids.find(ids.record(big).id), big);
    EXPECT_EQ(*ids.find(early), "early");
    const std::UUID late = ids.record(std::string{"the last straw"}).id;
    EXPECT_EQ(*ids.find(late), "the last straw");
    EXPECT_EQ(ids.find(early), nullptr);
    for (std::size_t i = 0; i < hmx::mostIds; ++i) ids.record(std::to_string(i));
    EXPECT_EQ(ids.find(late), nullptr);
    EXPECT_EQ(ids.record(std::string{"early"}).id, early);
}

TEST(IdTable, IdsStayWhateverTheOrderInWhichElementsCome) {
    hmx::IdTable<std::string> ids{&hmx::displayIdName, &DisplayObject::elementUri};
    const std::vector<std::string> names{"a", "b", "c", "d"};
    std::vector<hmx::Identity> known;
    for (const auto& name : names) known.push_back(ids.record(name));
    constexpr std::array<std::array<std::size_t, 4>, 5> orders{
        {{0, 1, 2, 3}, {3, 2, 1, 0}, {0, 0, 1, 1}, {2, 0, 2, 0}, {0, 1, 2, 3}}};
    for (const auto& order : orders) {
        for (const std::size_t i : order) {
            const hmx::Identity& identity = ids.record(names[i]);
            EXPECT_EQ(identity.id, known[i].id);
            EXPECT_EQ(identity.uri, DisplayObject::elementUri(known[i].id));
            EXPECT_EQ(*ids.find(identity.id), names[i]);
        }
    }
}

TEST(IdTable, OfKeysThatShareAnIdTheLastRecordedStandsBehindIt) {
    hmx::IdTable<hmx::PopupKey, hmx::PopupKeyHash, hmx::PopupKeyEqual> ids{&hmx::popupIdName,
                                                                           &kelo::hmx::PopupObject::elementUri};
    for (const char* const display : {"ab", "a", "ab", "ab", "a", "a", "ab"}) {
        const hmx::PopupKeyView key{display, display == std::string{"ab"} ? "c" : "bc"};
        EXPECT_EQ(ids.find(ids.record(key).id)->display, display);
    }
}

}  // namespace
