#include "kelo/tolu/properties.h"

#include <gtest/gtest.h>

#include "kelo/tolu/transform.h"
#include "platform/sample_records.h"
#include "support/documents.h"

namespace {

using kelo::tolu::properties::Match;
using Filter = kelo::tolu::Filter<sample::Element>;
using sample::Element;
using util::config::Array;
using util::config::Dictionary;
using util::config::Object;
using util::config::Value;

TEST(PropertiesTest, CopyKeepsWhatTheSourceLacksAndCompareTellsAbsence) {
    using namespace kelo::tolu::properties;
    const Element full = sample::fullElement();
    Element target = full;
    const Element empty;
    copyProperty(&Element::priority, target, empty);
    copyProperty(&Element::position, target, empty);
    EXPECT_TRUE(compareProperty(&Element::priority, target, full));
    EXPECT_TRUE(compareProperty(&Element::position, target, kelo::record::deepCopy(full)));
    EXPECT_FALSE(compareProperty(&Element::priority, target, empty));
    EXPECT_FALSE(compareProperty(&Element::position, empty, target));
    EXPECT_TRUE(compareProperty(&Element::layers, empty, Element{}));
    copyProperty(&Element::name, target, empty);  // always present, so it is copied
    EXPECT_EQ(target.name, "");
}

TEST(PropertiesTest, QueryValuesMatchExactlyOrDecideNothing) {
    struct Case {
        const char* key;
        Value value;
        Match full;
        Match empty;  // the result for an element without its optional members
    };
    const std::string id = sample::fullElement().id.toString();
    const Case cases[] = {
        {"name", "one", Match::yes, Match::no},
        {"name", "One", Match::no, Match::no},
        {"name", 1, Match::undecided, Match::undecided},
        {"id", id, Match::yes, Match::no},
        {"id", "19243473", Match::no, Match::no},
        {"uri", "/hmx/x", Match::yes, Match::no},
        {"active", true, Match::yes, Match::no},
        {"active", false, Match::no, Match::no},
        {"active", "true", Match::undecided, Match::undecided},
        {"active", 1, Match::undecided, Match::undecided},
        {"priority", 3, Match::yes, Match::no},
        {"priority", std::int64_t{3} + (std::int64_t{1} << 32), Match::no, Match::no},  // no wrap
        {"priority", 3.0, Match::undecided, Match::undecided},
        {"priority", Value{}, Match::undecided, Match::undecided},
        {"side", "Right_Side", Match::yes, Match::no},
        {"side", "Left_Side", Match::no, Match::no},
        {"side", 1, Match::undecided, Match::undecided},
        {"tags", "b", Match::yes, Match::no},
        {"tags", "c", Match::no, Match::no},
        {"tags", Array{"b", "a"}, Match::yes, Match::no},
        {"tags", Array{"a", "c"}, Match::no, Match::no},
        {"tags", Array{"a", 1}, Match::undecided, Match::undecided},
        {"position", Object{}, Match::undecided, Match::undecided},
        {"layers", Array{}, Match::undecided, Match::undecided},
        {"nobody", "x", Match::undecided, Match::undecided},
    };
    for (const auto& [key, value, full, empty] : cases) {
        Dictionary query;
        query.set(key, value);
        EXPECT_EQ(Filter{query}.admits(sample::fullElement()), full != Match::no) << key;
        EXPECT_EQ(Filter{query}.admits(Element{}), empty != Match::no) << key;
        const std::string_view consumed[] = {key};
        EXPECT_TRUE((Filter{query, consumed}.admits(Element{}))) << key;
    }
    EXPECT_EQ(kelo::tolu::properties::matchProperty(0.1F, Value{0.1}), Match::yes);
    EXPECT_EQ(kelo::tolu::properties::matchProperty(2.0F, Value{2}), Match::yes);
}

TEST(PropertiesTest, EveryValueOfTheQueryMustLetTheElementThrough) {
    Dictionary query;
    query.set("active", true);
    query.set("limit", 1);
    query.set("priority", "not an int");
    EXPECT_TRUE(Filter{query}.admits(sample::fullElement()));
    query.set("tags", "z");
    EXPECT_FALSE(Filter{query}.admits(sample::fullElement()));
}

TEST(TransformTest, FieldsSelectOptionalMembers) {
    const auto element = std::make_shared<Element>(sample::fullElement());
    EXPECT_EQ(kelo::tolu::transformElement(element, kelo::nullopt), element);
    kelo::optional<kelo::toluglobals::ToluParams> params{kelo::toluglobals::ToluParams{}};
    EXPECT_EQ(kelo::tolu::transformElement(element, params), element);
    params->fields = std::vector<std::string>{"priority", "nobody", "position"};
    const std::string selected =
        R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"one","uri":"/hmx/x","position":{},"priority":3})";
    EXPECT_EQ(support::toJson(*kelo::tolu::transformElement(element, params)), selected);
    EXPECT_EQ(support::toJson(kelo::tolu::transformElement(*element, params)), selected);
    params->fields = std::vector<std::string>{};
    EXPECT_EQ(support::toJson(*kelo::tolu::transformElement(std::shared_ptr<const Element>{element}, params)),
              R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"one","uri":"/hmx/x"})");
    EXPECT_TRUE(kelo::record::equal(*element, sample::fullElement()));
    EXPECT_EQ(kelo::tolu::transformElement(std::shared_ptr<Element>{}, params), nullptr);
}

}  // namespace
