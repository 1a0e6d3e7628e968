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

namespace hmx::recording {
namespace {

using client::member;

// A whole answer is due when the changes since the last one are larger than this many of it, and than this many bytes.
constexpr std::size_t mostTimesWhole = 4;
constexpr std::size_t leastChangeBytes = std::size_t{256} * 1024U;

// The name of the member that holds the array, "" for the document itself; nothing if there is none.
std::optional<std::string> arrayOf(const Json& document) {
    if (document.is_array()) return "";
    if (!document.is_object()) return {};
    if (member(document, "data").is_array()) return "data";
    for (const auto& [key, value] : document.items()) {
        if (value.is_array()) return key;
    }
    return {};
}

const Json& arrayIn(const Json& document, const std::string& array) {
    return array.empty() ? document : member(document, array);
}

// Which of the elements of that name.
using Identity = std::pair<std::string, std::size_t>;

std::vector<Identity> identitiesOf(const Json& elements, std::size_t first, std::size_t last) {
    std::map<std::string, std::size_t> seen;
    std::vector<Identity> identities;
    identities.reserve(last - first);
    for (std::size_t i = first; i < last; ++i) {
        const Json& id = member(elements[i], "id");
        std::string name = client::compact(id.is_null() ? member(elements[i], "name") : id);
        const std::size_t number = seen[name]++;
        identities.emplace_back(std::move(name), number);
    }
    return identities;
}

std::vector<Step> stepsBetween(const Json& before, const Json& now) {
    std::size_t first = 0;
    std::size_t lastBefore = before.size();
    std::size_t lastNow = now.size();
    while (first < lastBefore && first < lastNow && before[first] == now[first]) ++first;
    while (lastBefore > first && lastNow > first && before[lastBefore - 1] == now[lastNow - 1]) --lastBefore, --lastNow;

    const std::vector<Identity> old = identitiesOf(before, first, lastBefore);
    const std::vector<Identity> fresh = identitiesOf(now, first, lastNow);
    std::map<Identity, bool> isLeft;  // of the present ones: whether it is still to come
    for (const Identity& identity : fresh) isLeft[identity] = true;
    std::vector<Step> steps;
    std::size_t next = 0;  // in `old`
    for (std::size_t i = 0; i < fresh.size(); ++i) {
        const std::size_t at = first + i;
        const auto isGone = [&] {
            const auto found = isLeft.find(old[next]);
            return found == isLeft.end() || !found->second;
        };
        for (; next < old.size() && isGone(); ++next) steps.push_back({Step::Kind::erase, at});
        isLeft[fresh[i]] = false;
        if (next == old.size() || old[next] != fresh[i]) {
            steps.push_back({Step::Kind::insert, at, now[at]});
            continue;
        }
        if (before[first + next] != now[at]) steps.push_back({Step::Kind::set, at, now[at]});
        ++next;
    }
    for (; next < old.size(); ++next) steps.push_back({Step::Kind::erase, first + fresh.size()});
    return steps;
}

// The members besides the array that differ; false if applying them would leave the members in another order.
bool findMembers(const Json& before, const Json& now, Entry& change) {
    std::vector<std::string> order;
    for (const auto& [key, value] : before.items()) {
        if (now.contains(key)) {
            order.push_back(key);
        } else {
            change.document[key] = nullptr;
        }
    }
    for (const auto& [key, value] : now.items()) {
        const bool isNew = !before.contains(key);
        if (isNew) order.push_back(key);
        if (key == change.array && !isNew) continue;
        if (isNew || member(before, key) != value) {
            if (value.is_null()) return false;  // cannot be told from one that is gone
            change.document[key] = value;
        }
    }
    return std::equal(order.begin(), order.end(), now.items().begin(), now.items().end(),
                      [](const std::string& key, const auto& item) { return key == item.key(); });
}

}  // namespace

bool findSteps(const Json& before, const Json& now, Entry& change) {
    const std::optional<std::string> array = arrayOf(now);
    if (!array || before.type() != now.type() || !arrayIn(before, *array).is_array()) return false;
    change.array = *array;
    if (now.is_object() && !findMembers(before, now, change)) return false;
    change.steps = stepsBetween(arrayIn(before, *array), arrayIn(now, *array));
    return true;
}

std::optional<std::string> applySteps(Json& document, const Entry& change) {
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
    for (const Step& step : change.steps) {
        const bool isInsert = step.kind == Step::Kind::insert;
        if (step.at >= array.size() + (isInsert ? 1 : 0)) return "the document before has no element " + std::to_string(step.at);
        const auto place = array.begin() + static_cast<std::ptrdiff_t>(step.at);
        if (isInsert) {
            array.insert(place, step.element);
        } else if (step.kind == Step::Kind::erase) {
            array.erase(place);
        } else {
            *place = step.element;
        }
    }
    return {};
}

Entry Trail::begin(std::chrono::nanoseconds at, Kind kind, int status) {
    last_ = kind;
    return {.at = at, .number = count_ + 1, .source = source_, .kind = kind, .status = status};
}

std::string Trail::answer(std::chrono::nanoseconds at, int status, Json document) {
    const bool isDue = !document_ || changeBytes_ > std::max(leastChangeBytes, mostTimesWhole * wholeBytes_);
    Entry change = begin(at, Kind::change, status);
    const bool isFound = !isDue && findSteps(*document_, document, change);
    document_ = std::move(document);
    if (isFound) {
        std::string line = lineOf(change);
        if (line.size() < wholeBytes_) {
            ++count_;
            changeBytes_ += line.size();
            return line;
        }
    }
    Entry whole = begin(at, Kind::state, status);
    ++count_;
    whole.isBack = std::exchange(isDown_, false);
    whole.document = *document_;
    std::string line = lineOf(whole);
    wholeBytes_ = line.size();
    changeBytes_ = 0;
    return line;
}

std::string Trail::event(std::chrono::nanoseconds at, Kind kind, int status, std::string reason) {
    Entry entry = begin(at, kind, status);
    ++count_;
    entry.reason = std::move(reason);
    if (kind == Kind::missing) entry.isBack = std::exchange(isDown_, false);
    if (kind == Kind::lost) isDown_ = true;
    if (kind != Kind::ended) document_.reset();
    return lineOf(entry);
}

}  // namespace hmx::recording
