// Records: structs whose members are declared once, in a table that is used to read, write, compare, copy and describe them.
//
// Each struct has its table next to it, in its own namespace, with the members in wire order. A header needs no more than this:
//
//     struct LayerType {
//         kelo::optional<int> id;
//         kelo::optional<std::string> name;
//     };
//     constexpr auto recordTable(const LayerType*) {
//         using kelo::record::Row;
//         return kelo::record::Table<LayerType, Row<"id", &LayerType::id>, Row<"name", &LayerType::name>>{"LayerType"};
//     }
//     static_assert(kelo::record::covers<LayerType>);
//     bool serialize(kelo::serializer::IStructuredSerializer& writer, const LayerType& value);
//     bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, LayerType& value);
//
// One .cpp defines the two functions, so that a record's operations are compiled once:
//
//     bool serialize(IStructuredSerializer& writer, const LayerType& value) { return kelo::record::write(writer, value); }
//     bool deserialize(IStructuredPullDeserializer& reader, LayerType& value) { return kelo::record::read(reader, value); }
//
// Members. `kelo::optional<X>` and `std::shared_ptr<record>` are optional: an empty one is not written, and null is read as
// empty. All others are required: they are always written, and a document without them cannot be read. `Row<"regions",
// &T::regions, required>` makes a shared pointer required. X is int, bool, float, std::string, std::UUID, kelo::url, RequestHint,
// an enumeration, a record, a std::shared_ptr<record> (which must not be null here), or a std::vector of one of these.
//
// A type derived from kelo::tolu::XObject begins its table with the rows "id", "name" and "uri". Its own members are in a second
// base, an aggregate, so that `covers` can count them.
//
// Enumerations are written as strings. A function next to the enumeration names its values, starting with 0: `constexpr auto
// enumNames(E) { return std::array<std::string_view, 2>{"A", "B"}; }`.
//
// write and read return true on failure, with the reason in the error store. A reason from read begins with the path of the
// member: "regions.infoForAllLayers[2].bounds.width: …". Threads: any; nothing here has state.
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "kelo/optional.h"
#include "kelo/serializer/basic.h"
#include "kelo/serializer/json_reader.h"
#include "kelo/serializer/json_writer.h"
#include "kelo/std/error_storage.h"
#include "kelo/toluglobals.h"

namespace kelo::record {

using serializer::IStructuredPullDeserializer;
using serializer::IStructuredSerializer;

// --- Declaring ---------------------------------------------------------------------------------------------------------------

enum class Presence : std::uint8_t { byType, required };
inline constexpr Presence required = Presence::required;

// A key as a template argument.
template <std::size_t N>
struct Key {
    consteval Key(const char (&characters)[N]) {  // keys are written as literals
        for (std::size_t i = 0; i < N; ++i) text[i] = characters[i];
    }
    char text[N]{};
};

namespace detail {

template <class>
inline constexpr bool isOptional = false;
template <class X>
inline constexpr bool isOptional<kelo::optional<X>> = true;
template <class>
inline constexpr bool isShared = false;
template <class X>
inline constexpr bool isShared<std::shared_ptr<X>> = true;
template <class>
inline constexpr bool isVector = false;
template <class X, class A>
inline constexpr bool isVector<std::vector<X, A>> = true;

template <class V>
inline constexpr bool mayBeAbsent = isOptional<V> || isShared<V>;

template <class P>
struct MemberPointer;
template <class V, class C>
struct MemberPointer<V C::*> {
    using Value = V;
    using Class = C;
};

}  // namespace detail

template <Key K, auto Member, Presence P = Presence::byType>
struct Row {
    using Value = typename detail::MemberPointer<decltype(Member)>::Value;
    using Class = typename detail::MemberPointer<decltype(Member)>::Class;
    static constexpr util::serializer::PlainKey::Text keyText{K.text};
    static constexpr util::serializer::PlainKey plainKey{keyText};
    static constexpr std::string_view key = plainKey.text();
    static constexpr auto member = Member;
    static constexpr bool isRequired = P == Presence::required || !detail::mayBeAbsent<Value>;
};

template <class T, class... Rows>
struct Table {
    using Type = T;
    const char* name;
};

template <class T>
using TableOf = decltype(recordTable(static_cast<const T*>(nullptr)));

// A type with a table of its own.
template <class T>
concept Record = requires {
    typename TableOf<T>::Type;
}
&&std::is_same_v<typename TableOf<T>::Type, T>;

// The type's name, from its table.
template <Record T>
inline constexpr std::string_view nameOf{recordTable(static_cast<const T*>(nullptr)).name};

namespace detail {

template <class T>
inline constexpr bool isBasic = std::is_same_v<T, int> || std::is_same_v<T, bool> || std::is_same_v<T, float> ||
                                std::is_same_v<T, std::string> || std::is_same_v<T, std::UUID> || std::is_same_v<T, kelo::url>;

// These have their operations in kelo::serializer, where argument-dependent lookup does not find them.
template <class T>
inline constexpr bool hasFrameworkOperations =
    std::is_same_v<T, kelo::toluglobals::RequestHint> || std::is_same_v<T, kelo::toluglobals::ToluParams> ||
    std::is_same_v<T, util::config::Value>;

// If two rows name the same member, this inherits a base twice, which does not compile.
template <auto>
struct OneMember {};
template <class... Rows>
struct EachMemberOnce : OneMember<Rows::member>... {};

constexpr bool keysDiffer(std::initializer_list<std::string_view> keys) {
    for (const auto* a = keys.begin(); a != keys.end(); ++a) {
        for (const auto* b = a + 1; b != keys.end(); ++b) {
            if (*a == *b) return false;
        }
    }
    return true;
}

// An aggregate can be initialised with the values of all its members, and not with one more.
template <class T, class... Rows>
inline constexpr bool coversAggregate = requires {
    T{std::declval<typename Rows::Value>()...};
}
&&!requires {
    T{std::declval<typename Rows::Value>()..., {}};
};

// The same for those rows whose members are declared by `Class`.
template <class Class, class... Found>
constexpr bool coversClass(std::type_identity<Table<Class, Found...>> /*found*/) {
    return coversAggregate<Class, Found...>;
}
template <class Class, class... Found, class Next, class... Rows>
constexpr bool coversClass(std::type_identity<Table<Class, Found...>> found, Next* /*next*/, Rows*... rows) {
    if constexpr (std::is_same_v<typename Next::Class, Class>) {
        return coversClass(std::type_identity<Table<Class, Found..., Next>>{}, rows...);
    } else {
        return coversClass(found, rows...);
    }
}

// The size of a class without its tail padding, that is, the part that the first member of a derived class cannot use.
template <class T, std::size_t N>
struct WithBytes : T {
    char bytes[N];
};
template <class T, std::size_t Padding = 0>
constexpr std::size_t dataSize() {
    if constexpr (sizeof(WithBytes<T, Padding + 1>) > sizeof(T)) {
        return sizeof(T) - Padding;
    } else {
        return dataSize<T, Padding + 1>();
    }
}

// Where the data of classes ends that follow each other after `size` bytes; repetitions of one count once.
template <class Before, class Class, class... Others>
constexpr std::size_t endOfBases(std::size_t size) {
    if constexpr (!std::is_same_v<Before, Class>) {
        size = (size + alignof(Class) - 1) / alignof(Class) * alignof(Class) + dataSize<Class>();
    }
    if constexpr (sizeof...(Others) == 0) {
        return size;
    } else {
        return endOfBases<Class, Others...>(size);
    }
}
// Whether a T consists of nothing but the classes that declare the members.
template <class T, class... Rows>
constexpr bool isMadeOfBases() {
    return endOfBases<void, typename Rows::Class...>(0) == dataSize<T>();
}

template <class T, class... Rows>
constexpr bool coversRows(Table<T, Rows...>) {
    static_assert(sizeof(EachMemberOnce<Rows...>) > 0);
    static_assert(sizeof...(Rows) <= 64);
    if (!keysDiffer({Rows::key...})) return false;
    if constexpr (std::is_aggregate_v<T>) {
        return coversAggregate<T, Rows...>;
    } else {
        const auto covered = []<class Class>(std::type_identity<Class>) {
            if constexpr (std::is_aggregate_v<Class>) {
                return coversClass(std::type_identity<Table<Class>>{}, static_cast<Rows*>(nullptr)...);
            } else {
                return !std::is_same_v<Class, T>;  // a base such as XObject: its members are known
            }
        };
        return (covered(std::type_identity<typename Rows::Class>{}) && ...) && isMadeOfBases<T, Rows...>();
    }
}

}  // namespace detail

// Whether the table names every member, in the order of declaration, and no key or member twice. Only the members of an aggregate
// can be counted: a type that is not one must have its own members in an aggregate base, and nothing else.
template <class T>
inline constexpr bool covers = Record<T>&& detail::coversRows(TableOf<T>{});

// --- Writing -----------------------------------------------------------------------------------------------------------------

namespace detail {

// The slow paths, and what does not depend on the type.
[[gnu::cold]] bool nullPointer();                                         // records the failure; always true
[[gnu::cold]] bool valueOutOfEnum(unsigned value);                        // records the failure; always true
[[gnu::cold]] bool unknownName(std::span<const std::string_view> names);  // records the failure; always true
[[gnu::cold]] bool missing(std::string_view key);                         // records the failure; always true
[[gnu::cold]] bool outsideInt(std::size_t offset);                        // records the failure; always true
[[gnu::cold]] bool failedIn(std::string_view key);                        // prepends to the path of the stored error; always true
[[gnu::cold]] bool failedIn(std::size_t index);                           // likewise
// The index of a name in a sorted or unsorted list of names; -1 if it is not in the list.
int findSorted(std::span<const std::string_view> names, std::string_view name) noexcept;
int findUnsorted(std::span<const std::string_view> names, std::string_view name) noexcept;

template <class E>
inline constexpr auto namesOf = enumNames(E{});

template <class E>
inline constexpr bool namesAreSorted = [] {
    for (std::size_t i = 1; i < namesOf<E>.size(); ++i) {
        if (!(namesOf<E>[i - 1] < namesOf<E>[i])) return false;
    }
    return true;
}();

template <class E>
bool enumFromName(std::string_view name, E& value) noexcept {
    const int index = namesAreSorted<E> ? findSorted(namesOf<E>, name) : findUnsorted(namesOf<E>, name);
    if (index >= 0) value = static_cast<E>(index);
    return index < 0;
}

}  // namespace detail

// The name of an enumeration's value; "" if the value is out of range.
template <class E>
[[nodiscard]] constexpr std::string_view enumName(E value) noexcept {
    const auto index = static_cast<std::size_t>(value);
    return index < detail::namesOf<E>.size() ? detail::namesOf<E>[index] : std::string_view{};
}

// Writes a value of any type that a member may have, for example a reply that is a list.
template <class Writer, class V>
bool writeValue(Writer& writer, const V& value) {
    if constexpr (std::is_same_v<V, bool>) {
        return writer.writeBool(value);
    } else if constexpr (std::is_same_v<V, int>) {
        return writer.writeInt(value);
    } else if constexpr (std::is_same_v<V, float>) {
        return writer.writeFloat(value);
    } else if constexpr (std::is_same_v<V, std::string>) {
        return writer.writeString(value);
    } else if constexpr (std::is_same_v<V, std::UUID>) {
        return writer.writeUuid(value);
    } else if constexpr (std::is_same_v<V, kelo::url>) {
        return writer.writeUrl(value);
    } else if constexpr (detail::hasFrameworkOperations<V>) {
        return serializer::serialize(writer, value);
    } else if constexpr (std::is_enum_v<V>) {
        const std::string_view name = enumName(value);
        if (name.empty()) [[unlikely]]
            return detail::valueOutOfEnum(static_cast<unsigned>(value));
        return writer.writeString(name);
    } else if constexpr (detail::isShared<V>) {
        if (!value) [[unlikely]]
            return detail::nullPointer();
        return writeValue(writer, *value);
    } else if constexpr (detail::isVector<V>) {
        if (writer.beginArray()) return true;
        bool first = true;
        for (const auto& element : value) {
            if (writer.beginElement(first) || writeValue(writer, element) || writer.endElement()) return true;
            first = false;
        }
        return writer.endArray();
    } else {
        return serialize(writer, value);
    }
}

namespace detail {

// Calls write(value) if the row's value is to be written.
template <class R, class V, class Write>
bool withValueOf(const V& value, Write write) {
    if constexpr (R::isRequired) {
        return write(value);
    } else if constexpr (isOptional<V>) {
        return value && write(*value);
    } else {
        return value && write(value);
    }
}

template <class Writer, class T, class... Rows>
bool writeRows(Writer& writer, const T& value, Table<T, Rows...>) {
    bool first = true;
    const auto writeRow = [&]<class R>(R*, const auto& member) {
        return withValueOf<R>(member, [&](const auto& given) {
            return writer.plainMemberKey(R::plainKey, std::exchange(first, false)) || writeValue(writer, given) ||
                   writer.endMember();
        });
    };
    return writer.beginObject() || (writeRow(static_cast<Rows*>(nullptr), value.*Rows::member) || ...) || writer.endObject();
}

template <class V>
concept PlainInJson = requires(const V& value) {
    serializer::JsonWriter::Members::roomFor(value);
};

template <class T, class... Rows>
bool writeRows(serializer::JsonWriter& writer, const T& value, Table<T, Rows...>) {
    using Members = serializer::JsonWriter::Members;
    std::size_t room = 0;
    const auto addRoom = [&]<class R>(R*, const auto& member) {
        return withValueOf<R>(member, [&]<class V>(const V& given) {
            if constexpr (PlainInJson<V>) room += Members::roomFor(given);
            return false;
        });
    };
    (addRoom(static_cast<Rows*>(nullptr), value.*Rows::member), ...);
    if (writer.beginObject()) return true;
    Members members{writer, room};
    const auto writeRow = [&]<class R>(R*, const auto& member) {
        return withValueOf<R>(member, [&]<class V>(const V& given) {
            if constexpr (PlainInJson<V>) {
                return members.write(R::plainKey, given);
            } else {
                return members.write(R::plainKey, [&] { return writeValue(writer, given); });
            }
        });
    };
    return (writeRow(static_cast<Rows*>(nullptr), value.*Rows::member) || ...) || members.end();
}

}  // namespace detail

// Writes a record; called by its `serialize`. True on failure. Nearly all documents are JSON. For JSON the writer's code is
// inlined here; the other encodings use the interface for each member. That saves a twelfth of a request's instructions.
template <Record T>
bool write(IStructuredSerializer& writer, const T& value) {
    if (auto* const json = writer.as<serializer::JsonWriter>()) return detail::writeRows(*json, value, TableOf<T>{});
    return detail::writeRows(writer, value, TableOf<T>{});
}

// --- Reading -----------------------------------------------------------------------------------------------------------------

namespace detail {

// The least memory that an element of an array takes, including what it points to.
template <class V>
constexpr std::size_t elementMemory() {
    constexpr std::size_t controlBlock = 16;
    if constexpr (isShared<V>) {
        return sizeof(V) + controlBlock + sizeof(typename V::element_type);
    } else {
        return sizeof(V);
    }
}

// Makes room for another element and charges the reader for it. The new capacity is `expected`, or twice the number of elements.
template <class Reader, class V>
bool growFor(Reader& reader, std::vector<V>& elements, std::size_t expected) {
    const std::size_t capacity = std::max({std::size_t{1}, expected, 2 * elements.size()});
    if (reader.chargeMemory((capacity - elements.capacity()) * elementMemory<V>())) return true;
    elements.reserve(capacity);
    return false;
}

}  // namespace detail

// Reads a value of any type that a member may have; replaces what `value` contained.
template <class Reader, class V>
bool readValue(Reader& reader, V& value) {
    if constexpr (std::is_same_v<V, int>) {
        std::int64_t wide = 0;
        if (reader.readInt(wide)) return true;
        value = static_cast<int>(wide);
        return value != wide && detail::outsideInt(reader.offset());
    } else if constexpr (std::is_same_v<V, bool>) {
        return reader.readBool(value);
    } else if constexpr (std::is_same_v<V, std::string>) {
        std::string_view text;
        if (reader.readString(text)) return true;
        value = text;
        return false;
    } else if constexpr (detail::isBasic<V> || detail::hasFrameworkOperations<V>) {
        return serializer::deserialize(reader, value);
    } else if constexpr (std::is_enum_v<V>) {
        std::string_view name;
        if (reader.readString(name)) return true;
        return detail::enumFromName(name, value) && detail::unknownName(detail::namesOf<V>);
    } else if constexpr (detail::isShared<V>) {
        auto fresh = std::make_shared<std::remove_const_t<typename V::element_type>>();
        const bool failed = readValue(reader, *fresh);
        value = std::move(fresh);
        return failed;
    } else if constexpr (detail::isVector<V>) {
        // Lists of one type tend to have the same length each time: reserving that much avoids moving elements.
        thread_local std::size_t lastSize = 0;
        constexpr std::size_t most = 4096 / detail::elementMemory<typename V::value_type>();
        if (reader.beginArray()) return true;
        value.clear();
        for (;;) {
            bool end = false;
            if (reader.atArrayEnd(end)) return true;
            if (end) {
                lastSize = std::min(value.size(), most);
                return reader.endArray();
            }
            if (value.size() == value.capacity() && detail::growFor(reader, value, lastSize)) [[unlikely]]
                return detail::failedIn(value.size());
            if (readValue(reader, value.emplace_back())) [[unlikely]]
                return detail::failedIn(value.size() - 1);
            if (reader.endElement()) return true;
        }
    } else {
        return deserialize(reader, value);
    }
}

namespace detail {

// The type in which a reader that can take whole members returns a member of type V; void if it cannot take one of that type.
template <class V>
struct PlainOf {
    using Type = void;
};
template <>
struct PlainOf<int> {
    using Type = int;
};
template <>
struct PlainOf<bool> {
    using Type = bool;
};
template <>
struct PlainOf<std::string> {
    using Type = std::string_view;
};
template <class X>
struct PlainOf<kelo::optional<X>> : PlainOf<X> {};

template <class Reader, class V>
concept TakesWhole = requires {
    typename Reader::MemberPart;
}
&&!std::is_void_v<typename PlainOf<V>::Type>;

template <class Reader, class V>
bool readOptional(Reader& reader, V& value) {
    if (reader.takeNull()) {
        value = V{};
        return false;
    }
    if constexpr (isOptional<V>) {
        value.emplace();
        return readValue(reader, *value);
    } else {
        return readValue(reader, value);
    }
}

template <class R, class Reader, class V>
bool readMemberValue(Reader& reader, V& value) {
    if constexpr (R::isRequired) {
        return readValue(reader, value);
    } else {
        return readOptional(reader, value);
    }
}

// If the row's member is next, reads it and sets `isTaken`. `behindMember`: see takeMemberKey().
template <class R, bool behindMember, class Reader, class V>
bool readRow(Reader& reader, V& value, std::uint64_t& seen, std::uint64_t bit, bool& isTaken) {
    bool isRead = false;
    if constexpr (TakesWhole<Reader, V>) {
        typename PlainOf<V>::Type plain{};
        const auto taken = reader.takeMember(R::plainKey, behindMember, plain);
        if (taken == Reader::MemberPart::nothing) return false;
        isRead = taken == Reader::MemberPart::whole;
        if (isRead) [[likely]] {
            if constexpr (isOptional<V>) {
                value.emplace(plain);
            } else {
                value = plain;
            }
        }
    } else {
        if (!reader.takeMemberKey(R::plainKey, behindMember)) return false;
    }
    if (!isRead && readMemberValue<R>(reader, value)) [[unlikely]]
        return failedIn(R::key);
    if constexpr (R::isRequired) seen |= bit;
    isTaken = true;
    return false;
}

// Reads the next member, whatever its key; an unknown one is skipped.
template <class Reader, class T, class... Rows, std::size_t... Indices>
[[gnu::noinline]] bool readMemberByKey(Reader& reader, T& value, std::uint64_t& seen, Table<T, Rows...>,
                                       std::index_sequence<Indices...>) {
    std::string_view key;
    if (reader.memberKey(key)) return true;
    bool failed = false;
    const auto readIf = [&]<class R>(R*, auto& member, std::uint64_t bit) {
        if (key != R::key) return false;
        failed = readMemberValue<R>(reader, member) && failedIn(R::key);
        if constexpr (R::isRequired) seen |= bit;
        return true;
    };
    const bool isKnown = (readIf(static_cast<Rows*>(nullptr), value.*Rows::member, std::uint64_t{1} << Indices) || ...);
    return isKnown ? failed : reader.skipValue();
}

// Each pass over the rows reads the members that come in table order. A document in table order is read in one pass, and its keys
// are only compared. A pass begins with the first row's member or, if that is not next, with whichever member is.
template <class Reader, class T, class First, class... Rows, std::size_t... Indices>
bool readRows(Reader& reader, T& value, Table<T, First, Rows...> table, std::index_sequence<Indices...>) {
    constexpr auto bitOf = [](std::size_t row) { return std::uint64_t{1} << row; };
    constexpr std::uint64_t needed =
        ((std::uint64_t{Rows::isRequired} << (Indices + 1)) | ... | std::uint64_t{First::isRequired});
    std::uint64_t seen = 0;
    if (reader.beginObject()) return true;
    for (;;) {
        bool end = false;
        bool isTaken = false;
        if (reader.atObjectEnd(end)) return true;
        if (end) break;
        if (readRow<First, false>(reader, value.*First::member, seen, bitOf(0), isTaken)) return true;
        if (!isTaken && readMemberByKey(reader, value, seen, table, std::make_index_sequence<1 + sizeof...(Rows)>{})) return true;
        if ((readRow<Rows, true>(reader, value.*Rows::member, seen, bitOf(Indices + 1), isTaken) || ...)) return true;
        if (reader.endMember()) return true;
    }
    if (seen != needed) [[unlikely]] {
        if ((needed & ~seen & bitOf(0)) != 0) return missing(First::key);
        (void)(((needed & ~seen & bitOf(Indices + 1)) != 0 && missing(Rows::key)) || ...);
        return true;
    }
    return reader.endObject();
}

template <class Reader, class T, class First, class... Rows>
bool readRows(Reader& reader, T& value, Table<T, First, Rows...> table) {
    return readRows(reader, value, table, std::index_sequence_for<Rows...>{});
}

}  // namespace detail

// Reads a record; called by its `deserialize`. Fills `value` in place; unknown keys are skipped, and a repeated key overwrites.
// True on failure; `value` is then partly filled.
template <Record T>
bool read(IStructuredPullDeserializer& reader, T& value) {
    if (auto* const json = reader.as<serializer::JsonReader>()) return detail::readRows(*json, value, TableOf<T>{});
    return detail::readRows(reader, value, TableOf<T>{});
}

// --- Copying and comparing ---------------------------------------------------------------------------------------------------

namespace detail {

template <class V>
bool valuesEqual(const V& a, const V& b);

template <class T, class... Rows>
bool rowsEqual(const T& a, const T& b, Table<T, Rows...>) {
    return (valuesEqual(a.*Rows::member, b.*Rows::member) && ...);
}

template <class V>
bool valuesEqual(const V& a, const V& b) {
    if constexpr (mayBeAbsent<V>) {
        return bool(a) == bool(b) && (!a || valuesEqual(*a, *b));
    } else if constexpr (isVector<V>) {
        if (a.size() != b.size()) return false;
        for (std::size_t i = 0; i < a.size(); ++i) {
            if (!valuesEqual(a[i], b[i])) return false;
        }
        return true;
    } else if constexpr (Record<V> && !std::equality_comparable<V>) {
        return rowsEqual(a, b, TableOf<V>{});
    } else {
        return a == b;
    }
}

// Replaces the objects that a copy's pointers share with the original by copies of them.
template <class V>
void unshare(V& value);

template <class T, class... Rows>
void unshareRows(T& value, Table<T, Rows...>) {
    (unshare(value.*Rows::member), ...);
}

template <class V>
void unshare(V& value) {
    if constexpr (isOptional<V>) {
        if (value) unshare(*value);
    } else if constexpr (isShared<V>) {
        if (!value) return;
        auto copy = std::make_shared<std::remove_const_t<typename V::element_type>>(*value);
        unshare(*copy);
        value = std::move(copy);
    } else if constexpr (isVector<V>) {
        for (auto& element : value) unshare(element);
    } else if constexpr (Record<V>) {
        unshareRows(value, TableOf<V>{});
    }
}

template <class V>
bool isPresent(const V& value) {
    if constexpr (mayBeAbsent<V>) {
        return bool(value);
    } else {
        return true;
    }
}

template <class T, class... Rows>
void copyRows(T& target, const T& source, Table<T, Rows...>) {
    const auto copy = [](auto& to, const auto& from) {
        if (isPresent(from)) to = from;
    };
    (copy(target.*Rows::member, source.*Rows::member), ...);
}

}  // namespace detail

// Whether all members are equal. An absent member equals only an absent one. Pointers are compared by what they point to.
template <Record T>
[[nodiscard]] bool equal(const T& a, const T& b) {
    return detail::rowsEqual(a, b, TableOf<T>{});
}

// Assigns the members that are present in the source; the target's other members stay as they are. Nested objects are shared
// afterwards.
template <Record T>
void copyProperties(T& target, const T& source) {
    detail::copyRows(target, source, TableOf<T>{});
}

// A copy that shares no nested object with the original.
template <Record T>
[[nodiscard]] T deepCopy(const T& value) {
    T copy = value;
    detail::unshare(copy);
    return copy;
}

// --- Describing --------------------------------------------------------------------------------------------------------------

enum class Kind : std::uint8_t { integer, boolean, floating, string, uuid, url, enumeration, record };

struct Description;

// Describes one member, or the elements of an array. Everything it refers to has static storage.
struct MemberDescription {
    std::string_view key;
    Kind kind = Kind::record;
    bool isArray = false;
    bool isRequired = false;
    std::string_view typeName;                     // "int", "bool", "float", "string", "uuid", "url", "enum" or the record's name
    const Description& (*nested)() = nullptr;      // of a record
    std::span<const std::string_view> enumValues;  // of an enumeration
};

struct Description {
    std::string_view name;
    std::span<const MemberDescription> members;  // in wire order
};

// "int", "array of LayerType" and so on.
[[nodiscard]] std::string typeText(const MemberDescription& member);

template <Record T>
[[nodiscard]] const Description& describe();

namespace detail {

template <class V>
constexpr MemberDescription describeValue(std::string_view key, bool isRequired) {
    if constexpr (isOptional<V>) {
        return describeValue<typename V::value_type>(key, isRequired);
    } else if constexpr (isShared<V>) {
        return describeValue<std::remove_const_t<typename V::element_type>>(key, isRequired);
    } else if constexpr (isVector<V>) {
        static_assert(!isVector<typename V::value_type>, "an array of arrays has no description");
        MemberDescription description = describeValue<typename V::value_type>(key, isRequired);
        description.isArray = true;
        return description;
    } else {
        MemberDescription description;
        description.key = key;
        description.isRequired = isRequired;
        const auto is = [&](Kind kind, std::string_view typeName) {
            description.kind = kind;
            description.typeName = typeName;
        };
        if constexpr (std::is_same_v<V, int>) {
            is(Kind::integer, "int");
        } else if constexpr (std::is_same_v<V, bool>) {
            is(Kind::boolean, "bool");
        } else if constexpr (std::is_same_v<V, float>) {
            is(Kind::floating, "float");
        } else if constexpr (std::is_same_v<V, std::string>) {
            is(Kind::string, "string");
        } else if constexpr (std::is_same_v<V, std::UUID>) {
            is(Kind::uuid, "uuid");
        } else if constexpr (std::is_same_v<V, kelo::url>) {
            is(Kind::url, "url");
        } else if constexpr (std::is_enum_v<V>) {
            is(Kind::enumeration, "enum");
            description.enumValues = namesOf<V>;
        } else {
            is(Kind::record, nameOf<V>);
            description.nested = &describe<V>;
        }
        return description;
    }
}

template <class Table>
inline constexpr Description description{};
template <class T, class... Rows>
inline constexpr std::array<MemberDescription, sizeof...(Rows)> memberDescriptions{
    describeValue<typename Rows::Value>(Rows::key, Rows::isRequired)...};
template <class T, class... Rows>
inline constexpr Description description<Table<T, Rows...>>{nameOf<T>, memberDescriptions<T, Rows...>};

}  // namespace detail

// Describes the record, from its table. The result has static storage.
template <Record T>
const Description& describe() {
    return detail::description<TableOf<T>>;
}

}  // namespace kelo::record

namespace kelo::toluglobals {

constexpr auto recordTable(const RequestHint*) {
    using kelo::record::Row;
    return kelo::record::Table<RequestHint, Row<"limit", &RequestHint::limit>, Row<"offset", &RequestHint::offset>,
                               Row<"offsetId", &RequestHint::offsetId>>{"RequestHint"};
}
static_assert(kelo::record::covers<RequestHint>);

}  // namespace kelo::toluglobals
