#include "core/list_page.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/element.h"
#include "kelo/serializer/basic.h"
#include "support/documents.h"

namespace {

using kelo::toluglobals::RequestHint;
using kelo::toluglobals::ToluParams;
using support::Element;
using support::element;
using Page = kelo::tolu::ListPage<Element>;

std::vector<std::shared_ptr<Element>> elements() {
    return {element("a", 1, std::string{"red"}), element("b", 2), element("c", 1, std::string{"blue"}), element("d", 2),
            element("e", 1, std::string{"red"})};
}

std::string id(const char* name) {
    return element(name)->id.toString();
}

kelo::optional<ToluParams> params(const std::string& json) {
    ToluParams result;
    const auto reader = kelo::serializer::Factory::createDeserializer(support::MimeTypeID::json);
    EXPECT_FALSE(reader->start(util::ByteBufferReader{json}) || kelo::serializer::deserialize(*reader, result) ||
                 reader->finish())
        << json << std::ErrorStorage::takeReason();
    return result;
}

std::string names(const Page& page) {
    std::string result;
    for (const auto& entry : page.data) result += entry->name;
    return result;
}

// The page as a client gets it, with the elements' names instead of the elements.
std::string summary(const Page& page) {
    Page frame = page;
    frame.data.clear();
    std::string json = support::toJson(frame);
    json.insert(json.rfind("[]") + 1, names(page));
    return json;
}

TEST(ListPage, IsCutFromWhatMatches) {
    const std::string b = id("b"), c = id("c"), d = id("d");
    struct Case {
        std::string params;
        std::string page;
    };
    const Case cases[] = {
        {"{}", R"({"total":5,"totalPages":1,"data":[abcde]})"},
        {R"({"limit":5})", R"({"total":5,"totalPages":1,"data":[abcde]})"},
        {R"({"offset":3})", R"({"total":5,"totalPages":1,"data":[de]})"},
        {R"({"limit":2})", R"({"next":{"limit":2,"offset":2},"total":5,"totalPages":3,"offset":0,"data":[ab]})"},
        {R"({"limit":2,"offset":1})",
         R"({"previous":{"limit":1,"offset":0},"next":{"limit":2,"offset":3},"total":5,"totalPages":3,"offset":1,"data":[bc]})"},
        {R"({"limit":2,"offset":4})", R"({"previous":{"limit":2,"offset":2},"total":5,"totalPages":3,"offset":4,"data":[e]})"},
        {R"({"limit":2,"offset":2147483647})",
         R"({"previous":{"limit":2,"offset":3},"total":5,"totalPages":3,"offset":2147483647,"data":[]})"},
        {R"({"limit":2147483647,"offset":1})",
         R"({"previous":{"limit":1,"offset":0},"total":5,"totalPages":1,"offset":1,"data":[bcde]})"},
        {R"({"offsetId":")" + b + R"("})", R"({"total":5,"totalPages":1,"data":[cde]})"},
        {R"({"limit":1,"offset":4,"offsetId":")" + c + R"("})",
         R"({"previous":{"limit":1,"offsetId":")" + b + R"("},"next":{"limit":1,"offsetId":")" + d +
             R"("},"total":5,"totalPages":5,"offsetId":")" + c + R"(","data":[d]})"},
        {R"({"limit":2,"offsetId":")" + b + R"("})", R"({"previous":{"limit":2,"offset":0},"next":{"limit":2,"offsetId":")" + d +
                                                         R"("},"total":5,"totalPages":3,"offsetId":")" + b + R"(","data":[cd]})"},
        {R"({"offsetId":")" + id("gone") + R"("})", R"({"total":5,"totalPages":1,"data":[]})"},
        {R"({"size":1,"limit":1,"offsetId":")" + b + R"("})",  // after an element that does not match itself
         R"({"previous":{"limit":1,"offset":0},"next":{"limit":1,"offsetId":")" + c +
             R"("},"total":3,"totalPages":3,"offsetId":")" + b + R"(","data":[c]})"},
        {R"({"colour":"red"})", R"({"total":2,"totalPages":1,"data":[ae]})"},
        {R"({"colour":"red","size":2})", R"({"total":0,"totalPages":1,"data":[]})"},
        {R"({"colour":7,"shape":"round"})", R"({"total":5,"totalPages":1,"data":[abcde]})"},
        {R"({"name":"consumed","size":2})", R"({"total":2,"totalPages":1,"data":[bd]})"},
        {R"({"size":3,"limit":2})", R"({"total":0,"totalPages":0,"data":[]})"},
    };
    for (const Case& entry : cases) {
        EXPECT_EQ(summary(kelo::tolu::cutPage(elements(), params(entry.params), {"name"})), entry.page) << entry.params;
    }
    EXPECT_EQ(summary(kelo::tolu::cutPage(elements(), {})), cases[0].page);
}

TEST(ListPage, SelectsMembersOfItsOwnElementsOnly) {
    const auto all = elements();
    const Page page = kelo::tolu::cutPage(all, params(R"({"fields":["size"],"colour":"red"})"));
    ASSERT_EQ(names(page), "ae") << "what is left out may still be asked for";
    EXPECT_FALSE(page.data[0]->colour);
    EXPECT_EQ(*page.data[0]->size, 1);
    EXPECT_EQ(*all[0]->colour, "red") << "the elements themselves are shared with others";
}

TEST(ListPage, HintsLeadPastElementsThatShareAnId) {
    auto shared = elements();
    shared[2]->id = shared[1]->id;
    for (int limit = 1; limit <= 4; ++limit) {
        ToluParams request;
        request.limit = limit;
        request.offsetId = shared[0]->id;
        std::string forward;
        for (int pages = 0; pages < 6; ++pages) {
            const Page page = kelo::tolu::cutPage(shared, kelo::optional<ToluParams>{request});
            forward += names(page);
            if (!page.next) break;
            request.offset = page.next->offset;
            request.offsetId = page.next->offsetId;
        }
        EXPECT_EQ(forward, "bcde") << limit;
    }
}

kelo::optional<ToluParams> follow(const RequestHint& hint) {
    ToluParams result;
    result.limit = hint.limit;
    result.offset = hint.offset;
    result.offsetId = hint.offsetId;
    return result;
}

TEST(ListPage, HintsLeadOverAllElementsAndBack) {
    for (const bool byId : {false, true}) {
        for (int limit = 1; limit <= 6; ++limit) {
            SCOPED_TRACE(std::to_string(limit) + (byId ? " by id" : " by number"));
            ToluParams first;
            first.limit = limit;
            Page page = kelo::tolu::cutPage(elements(), kelo::optional<ToluParams>{first});
            std::string forward = names(page);
            while (page.next) {
                auto request = follow(*page.next);
                if (byId) {  // a client may change to ids at any page
                    request->offset = {};
                    request->offsetId = page.data.back()->id;
                }
                page = kelo::tolu::cutPage(elements(), request);
                EXPECT_LE(page.data.size(), static_cast<std::size_t>(limit));
                forward += names(page);
            }
            EXPECT_EQ(forward, "abcde");
            std::string back = names(page);
            while (page.previous) {
                page = kelo::tolu::cutPage(elements(), follow(*page.previous));
                back = names(page) + back;
            }
            EXPECT_EQ(back, "abcde");
        }
    }
}

}  // namespace
