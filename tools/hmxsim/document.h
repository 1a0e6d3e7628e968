// JSON documents that people write: read with the line of every value, so that a mistake is named by file, line and path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/documents.h"
#include "kelo/record.h"

namespace hmxsim {

// One value of a document. Thread: any (a value).
struct Node {
    enum class Type : std::uint8_t { null, boolean, integer, floating, string, object, array };

    Type type = Type::null;
    int line = 0;            // on which it begins, from 1
    std::string key;         // of an object's member
    std::string text;        // of a string
    std::int64_t integer{};  // of an integer, which is kept within 64 bits
    double floating{};       // of any number
    std::size_t begin = 0;   // of an object or array: its bytes in the document
    std::size_t end = 0;
    std::vector<Node> children;  // of an object or array

    // Null when the object has no such member.
    const Node* find(std::string_view name) const noexcept;
};

// Says "<file>:<line>: <path>: <what>"; a part that is not known is left out. Thread: any.
class DocumentError : public std::runtime_error {
public:
    DocumentError(std::string_view file, int line, std::string_view path, std::string_view what);
};

// A document and where it came from. Thread: one at a time (a value).
class Document {
public:
    // Reads the whole file. Throws DocumentError, with the system's reason when the file cannot be read.
    static Document fromFile(const std::string& file);
    // `file`: how messages call the text; "" for a text that has no lines of its own, whose messages give the path alone. Throws
    // DocumentError for text that is no JSON, has an object with the same key twice, or is nested deeper than 64 levels.
    Document(std::string file, std::string text);

    const Node& root() const noexcept { return root_; }
    const std::string& file() const noexcept { return file_; }
    // The bytes of an object or array.
    std::string_view textOf(const Node& node) const noexcept;

    [[noreturn]] void refuse(const Node& at, std::string_view path, std::string_view what) const;
    // Throws unless the node is of that type.
    void expect(const Node& node, Node::Type type, std::string_view path) const;
    // Throws for the members of an object that are not among `keys`.
    void expectKeys(const Node& object, std::initializer_list<std::string_view> keys, std::string_view path) const;
    // Throws unless the object is such a record: unknown keys, wrong types, absent required members, and elements of one array
    // with the same "id" are refused. A patch may lack members.
    enum class Extent : bool { whole, patch };
    void check(const Node& object, const kelo::record::Description& record, const std::string& path,
               Extent extent = Extent::whole) const;
    // Throws if two elements of the array have the same text at `keyPath` ("layersForDisplay.display.name").
    void refuseDuplicates(const Node& array, std::string_view keyPath, const std::string& path) const;

    // The object as a record, checked.
    template <kelo::record::Record T>
    T read(const Node& object, const std::string& path) const {
        check(object, kelo::record::describe<T>(), path);
        T value{};
        decode(object, path, kelo::ResultView::of(value));
        return value;
    }
    // The array as a list of records, checked.
    template <kelo::record::Record T>
    std::vector<T> readList(const Node& array, const std::string& path) const {
        expect(array, Node::Type::array, path);
        checkElements(array, kelo::record::describe<T>(), path);
        std::vector<T> values;
        decode(array, path, kelo::ResultView::of(values));
        return values;
    }

private:
    void checkElements(const Node& array, const kelo::record::Description& record, const std::string& path) const;
    void checkValue(const Node& node, const kelo::record::MemberDescription& member, const std::string& path) const;
    void decode(const Node& node, const std::string& path, kelo::ResultView result) const;

    std::string file_;
    std::string text_;
    Node root_;
};

// The value as a JSON document. Throws DocumentError for one that cannot be written. Thread: any.
std::string jsonText(kelo::BodyView value);

// "a.b", or "b" at the root. Thread: any.
std::string memberPath(std::string_view path, std::string_view key);
// "a[2]".
std::string elementPath(std::string_view path, std::size_t index);

}  // namespace hmxsim
