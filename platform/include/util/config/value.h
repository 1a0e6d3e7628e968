// A dynamic value, and a dictionary of such values; parameters and request options are passed in it.
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
    Value() = default;  // null
    Value(bool value) : data_{value} {}
    Value(int value) : data_{static_cast<std::int64_t>(value)} {}
    Value(std::int64_t value) : data_{value} {}
    Value(double value) : data_{value} {}
    Value(std::string value) : data_{std::move(value)} {}
    Value(std::string_view value) : data_{std::string{value}} {}
    Value(const char* value) : data_{std::string{value}} {}
    Value(Array value) : data_{std::move(value)} {}
    Value(Object value) : data_{std::move(value)} {}

    bool isNull() const noexcept { return std::holds_alternative<std::monostate>(data_); }
    // Each returns null unless the value has exactly that type: nothing is converted.
    const bool* asBool() const noexcept { return std::get_if<bool>(&data_); }
    const std::int64_t* asInt() const noexcept { return std::get_if<std::int64_t>(&data_); }
    const double* asDouble() const noexcept { return std::get_if<double>(&data_); }
    const std::string* asString() const noexcept { return std::get_if<std::string>(&data_); }
    const Array* asArray() const noexcept { return std::get_if<Array>(&data_); }
    const Object* asObject() const noexcept { return std::get_if<Object>(&data_); }

    friend bool operator==(const Value&, const Value&) = default;

private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, Array, Object> data_;
};

// Thread: one writer at a time (a value).
class Dictionary {
public:
    // Null if the key is absent.
    const Value* find(std::string_view key) const noexcept {
        const auto entry = entries_.find(key);
        return entry == entries_.end() ? nullptr : &entry->second;
    }
    // Adds the key or replaces its value.
    void set(std::string_view key, Value value) { entries_.insert_or_assign(std::string{key}, std::move(value)); }
    bool erase(std::string_view key) {
        const auto entry = entries_.find(key);
        if (entry == entries_.end()) return false;
        entries_.erase(entry);
        return true;
    }
    bool empty() const noexcept { return entries_.empty(); }
    std::size_t size() const noexcept { return entries_.size(); }
    const Object& entries() const noexcept { return entries_; }

    friend bool operator==(const Dictionary&, const Dictionary&) = default;

private:
    Object entries_;
};

}  // namespace util::config
