#include "util/config/value.h"

namespace util::config {

Value::Value() noexcept = default;
Value::Value(bool value) : data_{value} {}
Value::Value(int value) : data_{static_cast<std::int64_t>(value)} {}
Value::Value(std::int64_t value) : data_{value} {}
Value::Value(double value) : data_{value} {}
Value::Value(std::string value) : data_{std::move(value)} {}
Value::Value(std::string_view value) : data_{std::string{value}} {}
Value::Value(const char* value) : data_{std::string{value}} {}
Value::Value(Array value) : data_{std::move(value)} {}
Value::Value(Object value) : data_{std::move(value)} {}
Value::Value(const Value& other) = default;
Value::Value(Value&& other) noexcept = default;
Value& Value::operator=(const Value& other) = default;
Value& Value::operator=(Value&& other) noexcept = default;
Value::~Value() = default;

bool Value::isNull() const noexcept {
    return std::holds_alternative<std::monostate>(data_);
}
const bool* Value::asBool() const noexcept {
    return std::get_if<bool>(&data_);
}
const std::int64_t* Value::asInt() const noexcept {
    return std::get_if<std::int64_t>(&data_);
}
const double* Value::asDouble() const noexcept {
    return std::get_if<double>(&data_);
}
const std::string* Value::asString() const noexcept {
    return std::get_if<std::string>(&data_);
}
const Array* Value::asArray() const noexcept {
    return std::get_if<Array>(&data_);
}
const Object* Value::asObject() const noexcept {
    return std::get_if<Object>(&data_);
}

bool operator==(const Value& one, const Value& other) {
    return one.data_ == other.data_;
}

Dictionary::Dictionary() noexcept = default;
Dictionary::Dictionary(const Dictionary& other) = default;
Dictionary::Dictionary(Dictionary&& other) noexcept = default;
Dictionary& Dictionary::operator=(const Dictionary& other) = default;
Dictionary& Dictionary::operator=(Dictionary&& other) noexcept = default;
Dictionary::~Dictionary() = default;

const Value* Dictionary::find(std::string_view key) const noexcept {
    const auto entry = entries_.find(key);
    return entry == entries_.end() ? nullptr : &entry->second;
}

void Dictionary::set(std::string_view key, Value value) {
    entries_.insert_or_assign(std::string{key}, std::move(value));
}

bool Dictionary::erase(std::string_view key) {
    const auto entry = entries_.find(key);
    if (entry == entries_.end()) return false;
    entries_.erase(entry);
    return true;
}

bool operator==(const Dictionary& one, const Dictionary& other) {
    return one.entries_ == other.entries_;
}

}  // namespace util::config
