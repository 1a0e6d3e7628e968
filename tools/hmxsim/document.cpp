// The JSON parser comes from a package. It reports values but not their places. It reads its input through an iterator that
// counts lines as they pass, so the line of a value is the line of the last character read when the value is reported: the
// parser reads ahead by at most the one character after a number, and that is still on the number's line, even if it is the
// line's end.
//
// What a record may contain is what its table says, so a record can gain a member and every world file may have it.
#include "document.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "answers.h"

namespace hmxsim {

namespace {

using kelo::record::Kind;

constexpr std::size_t maxDepth = 64;

constexpr std::string_view typeNames[] = {"null", "bool", "int", "float", "string", "object", "array"};

std::string_view nameOf(Node::Type type) {
    return typeNames[static_cast<std::size_t>(type)];
}

// How far the parser has read.
struct ReadPosition {
    std::size_t consumed = 0;
    int line = 1;  // of the last character read
    bool lineEnded = false;
};

// Thread: one at a time; refers to the text and to the place.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(const char* position, ReadPosition* place) : position_{position}, place_{place} {}
    const char& operator*() const { return *position_; }
    CountingIterator& operator++() {
        if (place_->lineEnded) ++place_->line;
        place_->lineEnded = *position_ == '\n';
        ++place_->consumed;
        ++position_;
        return *this;
    }
    // NOLINTNEXTLINE(cert-dcl21-cpp): what iterators of the standard library give, too
    CountingIterator operator++(int) {
        const CountingIterator before = *this;
        ++*this;
        return before;
    }
    friend bool operator==(const CountingIterator& a, const CountingIterator& b) { return a.position_ == b.position_; }

private:
    const char* position_;
    ReadPosition* place_;
};

std::string pathTo(const std::vector<Node*>& open) {
    std::string path;
    for (std::size_t i = 1; i < open.size(); ++i) {
        path = open[i - 1]->type == Node::Type::array ? elementPath(path, open[i - 1]->children.size() - 1)
                                                      : memberPath(path, open[i]->key);
    }
    return path;
}

// Thread: one at a time; refers to the place.
class TreeBuilder final : public nlohmann::json_sax<nlohmann::json> {
public:
    TreeBuilder(const std::string& file, const ReadPosition& place, Node& root) : file_{file}, place_{place}, root_{root} {}

    bool null() override {
        add(Node::Type::null);
        return true;
    }
    bool boolean(bool) override {
        add(Node::Type::boolean);
        return true;
    }
    bool number_integer(number_integer_t value) override {
        Node& node = add(Node::Type::integer);
        node.integer = value;
        node.floating = static_cast<double>(value);
        return true;
    }
    bool number_unsigned(number_unsigned_t value) override {
        constexpr auto most = static_cast<number_unsigned_t>(std::numeric_limits<std::int64_t>::max());
        return number_integer(static_cast<std::int64_t>(std::min(value, most)));
    }
    bool number_float(number_float_t value, const string_t&) override {
        add(Node::Type::floating).floating = value;
        return true;
    }
    bool string(string_t& value) override {
        add(Node::Type::string).text = std::move(value);
        return true;
    }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override { return begin(Node::Type::object); }
    bool start_array(std::size_t) override { return begin(Node::Type::array); }
    bool end_object() override { return end(); }
    bool end_array() override { return end(); }
    bool key(string_t& name) override {
        if (open_.back()->find(name) != nullptr) {
            throw DocumentError(file_, place_.line, memberPath(pathTo(open_), name), "the key stands here a second time");
        }
        key_ = std::move(name);
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception& error) override {
        // "[json.exception.parse_error.101] parse error at line 3, column 5: syntax error while …": the line is known already.
        std::string_view what = error.what();
        if (const auto text = what.find(": "); text != std::string_view::npos) what.remove_prefix(text + 2);
        throw DocumentError(file_, place_.line, key_.empty() ? pathTo(open_) : memberPath(pathTo(open_), key_), what);
    }

private:
    Node& add(Node::Type type) {
        Node* node = &root_;
        if (!open_.empty()) node = &open_.back()->children.emplace_back();
        node->type = type;
        node->line = place_.line;
        node->key = std::exchange(key_, {});
        return *node;
    }
    bool begin(Node::Type type) {
        Node& node = add(type);
        node.begin = place_.consumed - 1;
        open_.push_back(&node);
        if (open_.size() > maxDepth) throw DocumentError(file_, place_.line, pathTo(open_), "nested deeper than 64 levels");
        return true;
    }
    bool end() {
        open_.back()->end = place_.consumed;
        open_.pop_back();
        return true;
    }

    const std::string& file_;
    const ReadPosition& place_;
    Node& root_;
    std::vector<Node*> open_;  // the containers around the next value: none grows a sibling while it is open, so they stay put
    std::string key_;
};

kelo::MimeType jsonType() {
    return kelo::MimeType{kelo::mimetypes::MimeTypeID::json};
}

std::string joined(std::span<const std::string_view> names) {
    std::string text;
    for (const std::string_view name : names) (text += text.empty() ? "" : ", ") += name;
    return text;
}

}  // namespace

const Node* Node::find(std::string_view name) const noexcept {
    for (const Node& child : children) {
        if (child.key == name) return &child;
    }
    return nullptr;
}

DocumentError::DocumentError(std::string_view file, int line, std::string_view path, std::string_view what)
    : std::runtime_error{[&] {
          std::string text{file};
          if (!file.empty() && line > 0) (text += ':') += std::to_string(line);
          if (!text.empty()) text += ": ";
          if (!path.empty()) (text += path) += ": ";
          return text += what;
      }()} {}

Document Document::fromFile(const std::string& file) {
    std::error_code ignored;
    if (std::filesystem::is_directory(file, ignored)) throw DocumentError(file, 0, "", std::strerror(EISDIR));
    std::ifstream stream{file, std::ios::binary};
    std::ostringstream text;
    if (stream) text << stream.rdbuf();
    if (!stream) throw DocumentError(file, 0, "", std::strerror(errno));
    return {file, std::move(text).str()};
}

Document::Document(std::string file, std::string text) : file_{std::move(file)}, text_{std::move(text)} {
    ReadPosition place;
    TreeBuilder builder{file_, place, root_};
    nlohmann::json::sax_parse(CountingIterator{text_.data(), &place}, CountingIterator{text_.data() + text_.size(), &place},
                              &builder);
}

std::string_view Document::textOf(const Node& node) const noexcept {
    return std::string_view{text_}.substr(node.begin, node.end - node.begin);
}

void Document::refuse(const Node& at, std::string_view path, std::string_view what) const {
    throw DocumentError(file_, at.line, path, what);
}

void Document::expect(const Node& node, Node::Type type, std::string_view path) const {
    if (node.type == type) return;
    refuse(node, path, "expected " + std::string{nameOf(type)} + ", found " + std::string{nameOf(node.type)});
}

void Document::expectKeys(const Node& object, std::initializer_list<std::string_view> keys, std::string_view path) const {
    expect(object, Node::Type::object, path);
    for (const Node& child : object.children) {
        if (std::find(keys.begin(), keys.end(), child.key) == keys.end()) {
            refuse(child, memberPath(path, child.key), "unknown key; known here: " + joined({keys.begin(), keys.size()}));
        }
    }
}

void Document::check(const Node& object, const kelo::record::Description& record, const std::string& path, Extent extent) const {
    expect(object, Node::Type::object, path);
    for (const Node& child : object.children) {
        const auto* const member = std::find_if(record.members.data(), record.members.data() + record.members.size(),
                                                [&](const auto& candidate) { return candidate.key == child.key; });
        const std::string place = memberPath(path, child.key);
        if (member == record.members.data() + record.members.size()) {
            std::string known;
            for (const auto& candidate : record.members) (known += known.empty() ? "" : ", ") += candidate.key;
            refuse(child, place, "unknown key; " + std::string{record.name} + " has " + known);
        }
        if (child.type == Node::Type::null && (!member->isRequired || extent == Extent::patch)) continue;
        if (member->isArray) {
            expect(child, Node::Type::array, place);
            if (member->kind == Kind::record) {
                checkElements(child, member->nested(), place);
            } else {
                for (std::size_t i = 0; i < child.children.size(); ++i) {
                    checkValue(child.children[i], *member, elementPath(place, i));
                }
            }
        } else if (member->kind == Kind::record) {
            check(child, member->nested(), place, extent);
        } else {
            checkValue(child, *member, place);
        }
    }
    for (const auto& member : record.members) {
        if (extent == Extent::whole && member.isRequired && object.find(member.key) == nullptr) {
            refuse(object, path, "\"" + std::string{member.key} + "\" is missing; " + std::string{record.name} + " must have it");
        }
    }
}

void Document::checkElements(const Node& array, const kelo::record::Description& record, const std::string& path) const {
    for (std::size_t i = 0; i < array.children.size(); ++i) check(array.children[i], record, elementPath(path, i));
    refuseDuplicates(array, "id", path);
}

void Document::checkValue(const Node& node, const kelo::record::MemberDescription& member, const std::string& path) const {
    switch (member.kind) {
        case Kind::integer:
            expect(node, Node::Type::integer, path);
            if (node.integer < std::numeric_limits<int>::min() || node.integer > std::numeric_limits<int>::max()) {
                refuse(node, path, "outside the 32 bits of an int");
            }
            break;
        case Kind::boolean:
            expect(node, Node::Type::boolean, path);
            break;
        case Kind::floating:
            if (node.type != Node::Type::integer) expect(node, Node::Type::floating, path);
            break;
        case Kind::string:
        case Kind::uuid:
        case Kind::url:
            expect(node, Node::Type::string, path);
            break;
        case Kind::enumeration:
            expect(node, Node::Type::string, path);
            if (std::find(member.enumValues.begin(), member.enumValues.end(), node.text) == member.enumValues.end()) {
                refuse(node, path, "\"" + node.text + "\" is none of " + joined(member.enumValues));
            }
            break;
        case Kind::record:
            check(node, member.nested(), path);
            break;
    }
}

void Document::refuseDuplicates(const Node& array, std::string_view keyPath, const std::string& path) const {
    std::map<std::string, int> lines;
    for (std::size_t i = 0; i < array.children.size(); ++i) {
        const Node* node = &array.children[i];
        for (std::string_view rest = keyPath; node != nullptr && !rest.empty();) {
            const auto dot = std::min(rest.find('.'), rest.size());
            node = node->find(rest.substr(0, dot));
            rest.remove_prefix(std::min(dot + 1, rest.size()));
        }
        if (node == nullptr || (node->type != Node::Type::string && node->type != Node::Type::integer)) continue;
        const std::string value = node->type == Node::Type::string ? '"' + node->text + '"' : std::to_string(node->integer);
        const auto [first, isNew] = lines.emplace(value, node->line);
        if (!isNew) {
            std::string what = value + " stands here a second time";
            if (!file_.empty()) what += "; first in line " + std::to_string(first->second);
            refuse(*node, memberPath(elementPath(path, i), keyPath), what);
        }
    }
}

void Document::decode(const Node& node, const std::string& path, kelo::ResultView result) const {
    const std::string_view text = textOf(node);
    const std::span bytes{reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
    if (kelo::readDocument(bytes, jsonType(), result)) refuse(node, path, std::ErrorStorage::takeReason());
}

std::string jsonText(kelo::BodyView value) {
    util::ByteBufferWriter buffer;
    if (kelo::writeDocument(buffer, jsonType(), value)) throw DocumentError("", 0, "", std::ErrorStorage::takeReason());
    return {reinterpret_cast<const char*>(buffer.bytes().data()), buffer.size()};
}

std::string memberPath(std::string_view path, std::string_view key) {
    return path.empty() ? std::string{key} : std::string{path} + '.' + std::string{key};
}

std::string elementPath(std::string_view path, std::size_t index) {
    return std::string{path} + '[' + std::to_string(index) + ']';
}

}  // namespace hmxsim
