// A dynamic value, and a dictionary of such values; parameters and request options are passed in it. Nearly every source includes
// this, so the variant's and the map's functions are compiled in one source.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace util::config {

class Value;
using Array = std::vector<Value>;
using Object = std::map<std::string, Value, std::less<>>;

// Thread: any (a value).
class Value {
public:
    Value() noexcept;  // null
    Value(bool value);
    Value(int value);
    Value(std::int64_t value);
    Value(double value);
    Value(std::string value);
    Value(std::string_view value);
    Value(const char* value);
    Value(Array value);
    Value(Object value);
    Value(const Value& other);
    Value(Value&& other) noexcept;
    Value& operator=(const Value& other);
    Value& operator=(Value&& other) noexcept;
    ~Value();

    bool isNull() const noexcept;
    // Each returns null unless the value has exactly that type: nothing is converted.
    const bool* asBool() const noexcept;
    const std::int64_t* asInt() const noexcept;
    const double* asDouble() const noexcept;
    const std::string* asString() const noexcept;
    const Array* asArray() const noexcept;
    const Object* asObject() const noexcept;

    friend bool operator==(const Value& one, const Value& other);

private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, Array, Object> data_;
};

// Thread: one writer at a time (a value).
class Dictionary {
public:
    Dictionary() noexcept;
    Dictionary(const Dictionary& other);
    Dictionary(Dictionary&& other) noexcept;
    Dictionary& operator=(const Dictionary& other);
    Dictionary& operator=(Dictionary&& other) noexcept;
    ~Dictionary();

    // Null if the key is absent.
    const Value* find(std::string_view key) const noexcept;
    // Adds the key or replaces its value.
    void set(std::string_view key, Value value);
    bool erase(std::string_view key);
    bool empty() const noexcept { return entries_.empty(); }
    std::size_t size() const noexcept { return entries_.size(); }
    const Object& entries() const noexcept { return entries_; }

    friend bool operator==(const Dictionary& one, const Dictionary& other);

private:
    Object entries_;
};

}  // namespace util::config
