// An answer is kept as the text that came, with the places of its parts. Most of the next answer is the same text, so what
// differs is found by comparing parts as they stand; only parts that differ are made into trees. An answer of 20 KB with one
// change takes a tenth of the time that two trees would.
//
// A document's array is the document itself, or its member "data", or else its first member that is one: an upstream document
// has one that matters. Elements are the same if their "id" is, else their "name"; of several that share it, or have neither, the
// first is the same as the first, and so on. Steps are found in one walk over both arrays, after what both begin and end with
// has been set aside. Elements that have changed places are erased and inserted again; where that takes more than the document
// itself, the document is written.
//
// Members keep their order: a reader must get the very document. So a change is written only if applying it leaves the members
// in the order that they have now.

#include "hmx/recording/trail.h"

#include <algorithm>
#include <map>
#include <utility>

#include "hmx/client/json_text.h"

namespace hmx::recording {
namespace {

using client::Error;
using client::JsonText;
using client::member;
using client::treeOf;

// A whole answer is due when the changes since the last one are larger than this many of it, and than this many bytes.
constexpr std::size_t mostTimesWhole = 4;
constexpr std::size_t leastChangeBytes = std::size_t{256} * 1024U;

// Which of the elements of that name.
using Identity = std::pair<std::string, std::size_t>;

std::vector<Identity> identitiesOf(const std::vector<Json>& elements) {
    std::map<std::string, std::size_t> seen;
    std::vector<Identity> identities;
    identities.reserve(elements.size());
    for (const Json& element : elements) {
        const Json& id = member(element, "id");
        std::string name = client::compact(id.is_null() ? member(element, "name") : id);
        const std::size_t number = seen[name]++;
        identities.emplace_back(std::move(name), number);
    }
    return identities;
}

}  // namespace

const Trail::Member* Trail::Document::find(const std::string& key) const {
    const auto found = std::find_if(members.begin(), members.end(), [&](const Member& each) { return each.key == key; });
    return found == members.end() ? nullptr : &*found;
}

Trail::Document Trail::read(std::string text) {
    // A line has one line only.
    if (text.find('\n') != std::string::npos || text.find('\r') != std::string::npos) text = client::compact(treeOf(text));
    Document document{.text = std::move(text)};
    JsonText json{document.text};
    const auto take = [&] {
        const std::string_view value = json.value();
        return Piece{value.empty() ? 0 : static_cast<std::size_t>(value.data() - document.text.data()), value.size()};
    };
    const auto takeElements = [&](const std::string& name) {
        document.array = name;
        document.elements.clear();
        json.elements([&] { document.elements.push_back(take()); });
    };
    if (json.type() == JsonText::Type::array) {
        document.isArray = true;
        takeElements("");
    } else if (json.type() == JsonText::Type::object) {
        json.members([&](const std::string& key) {
            Piece value;
            if (json.type() == JsonText::Type::array && (!document.array || key == "data")) {
                takeElements(key);
            } else {
                value = take();
            }
            document.members.push_back({key, value});
        });
    } else {
        (void)take();
    }
    if (!json.isDone()) throw Error{Error::Kind::unreadable, "the answer is not a readable JSON document"};
    return document;
}

// The members besides the array that differ; false if applying them would not lead to the members as they are now.
bool Trail::findMembers(const Document& before, const Document& now, Entry& change) {
    std::vector<std::string> order;
    for (const Member& old : before.members) {
        if (now.find(old.key) != nullptr) {
            order.push_back(old.key);
        } else {
            change.document[old.key] = nullptr;
        }
    }
    for (const Member& member : now.members) {
        const Member* const old = before.find(member.key);
        if (old == nullptr) order.push_back(member.key);
        if (old != nullptr && (member.key == now.array || before[old->value] == now[member.value])) continue;
        Json value = treeOf(now[member.value]);
        if (value.is_null()) return false;  // cannot be told from one that is gone
        change.document[member.key] = std::move(value);
    }
    return std::equal(order.begin(), order.end(), now.members.begin(), now.members.end(),
                      [](const std::string& key, const Member& member) { return key == member.key; });
}

std::vector<Step> Trail::stepsBetween(const Document& before, const Document& now) {
    std::size_t first = 0;
    std::size_t lastBefore = before.elements.size();
    std::size_t lastNow = now.elements.size();
    const auto isSame = [&](std::size_t i, std::size_t j) { return before[before.elements[i]] == now[now.elements[j]]; };
    while (first < lastBefore && first < lastNow && isSame(first, first)) ++first;
    while (lastBefore > first && lastNow > first && isSame(lastBefore - 1, lastNow - 1)) --lastBefore, --lastNow;

    const auto trees = [&](const Document& document, std::size_t last) {
        std::vector<Json> elements;
        for (std::size_t i = first; i < last; ++i) elements.push_back(treeOf(document[document.elements[i]]));
        return elements;
    };
    std::vector<Json> elements = trees(now, lastNow);
    const std::vector<Identity> old = identitiesOf(trees(before, lastBefore));
    const std::vector<Identity> fresh = identitiesOf(elements);
    std::map<Identity, bool> isLeft;  // of the present ones: whether it is still to come
    for (const Identity& identity : fresh) isLeft[identity] = true;
    std::vector<Step> steps;
    std::size_t next = 0;  // in `old`
    const auto isGone = [&] {
        const auto found = isLeft.find(old[next]);
        return found == isLeft.end() || !found->second;
    };
    for (std::size_t i = 0; i < fresh.size(); ++i) {
        const std::size_t at = first + i;
        for (; next < old.size() && isGone(); ++next) steps.push_back({Step::Kind::erase, at});
        isLeft[fresh[i]] = false;
        const bool isKept = next < old.size() && old[next] == fresh[i];
        if (!isKept || !isSame(first + next, at)) {
            steps.push_back({isKept ? Step::Kind::set : Step::Kind::insert, at, std::move(elements[i])});
        }
        if (isKept) ++next;
    }
    for (; next < old.size(); ++next) steps.push_back({Step::Kind::erase, first + fresh.size()});
    return steps;
}

std::optional<std::string> applySteps(Json& document, Entry change) {
    if (change.document.is_object()) {
        if (!document.is_object()) return "the document before has no members";
        for (const auto& [key, value] : change.document.items()) {
            if (value.is_null()) {
                document.erase(key);
            } else {
                document[key] = value;
            }
        }
    }
    if (!change.array.empty() && !document.is_object()) return "the document before has no members";
    Json& array = change.array.empty() ? document : document[change.array];
    if (!array.is_array()) return change.steps.empty() ? std::nullopt : std::optional{"the document before has no such array"};
    for (Step& step : change.steps) {
        const bool isInsert = step.kind == Step::Kind::insert;
        if (step.at >= array.size() + (isInsert ? 1 : 0)) return "the document before has no element " + std::to_string(step.at);
        const auto place = array.begin() + static_cast<std::ptrdiff_t>(step.at);
        if (isInsert) {
            array.insert(place, std::move(step.element));
        } else if (step.kind == Step::Kind::erase) {
            array.erase(place);
        } else {
            *place = std::move(step.element);
        }
    }
    return {};
}

Entry Trail::begin(std::chrono::nanoseconds at, EntryKind kind, int status) {
    last_ = kind;
    return {.at = at, .number = count_ + 1, .source = source_, .kind = kind, .status = status};
}

std::string Trail::answer(std::chrono::nanoseconds at, int status, std::string text) {
    Document document = read(std::move(text));
    const bool isDue = document_.text.empty() || changeBytes_ > std::max(leastChangeBytes, mostTimesWhole * wholeBytes_);
    Entry change = begin(at, EntryKind::change, status);
    const bool isSimilar = !isDue && document.array && document.array == document_.array &&
                           document.isArray == document_.isArray && findMembers(document_, document, change);
    if (isSimilar) {
        change.array = *document.array;
        change.steps = stepsBetween(document_, document);
    }
    document_ = std::move(document);
    ++count_;
    if (isSimilar) {
        std::string line = lineOf(change);
        if (line.size() < wholeBytes_) {
            changeBytes_ += line.size();
            return line;
        }
    }
    change.steps.clear();
    change.array.clear();
    change.document = nullptr;
    change.kind = EntryKind::state;
    change.isBack = std::exchange(isDown_, false);
    last_ = EntryKind::state;
    std::string line = lineOf(change);
    constexpr std::string_view placeholder = "null}\n";
    line.replace(line.size() - placeholder.size(), placeholder.size(), document_.text + "}\n");
    wholeBytes_ = line.size();
    changeBytes_ = 0;
    return line;
}

std::string Trail::event(std::chrono::nanoseconds at, EntryKind kind, int status, std::string reason) {
    Entry entry = begin(at, kind, status);
    ++count_;
    entry.reason = std::move(reason);
    if (kind == EntryKind::missing) entry.isBack = std::exchange(isDown_, false);
    if (kind == EntryKind::lost) isDown_ = true;
    if (kind != EntryKind::ended) document_ = {};
    return lineOf(entry);
}

}  // namespace hmx::recording
