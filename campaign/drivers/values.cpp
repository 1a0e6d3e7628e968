#include "drivers/drivers.h"

#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "hmx/display_object.h"
#include "hmx/displayable_object.h"
#include "hmx/displaymanager/display_layers.h"
#include "hmx/displaymanager/displayable.h"
#include "hmx/displaymanager/displays_info.h"
#include "hmx/inputregions/haptic_and_input_info_per_hmi.h"
#include "hmx/inputregions/haptic_trigger.h"
#include "hmx/inputregions/shutter_info.h"
#include "hmx/insert_regionconfiguration_object.h"
#include "hmx/layerconfiguration_object.h"
#include "hmx/popup_object.h"
#include "hmx/popups/popup.h"
#include "hmx/popups/popup_state_update.h"
#include "hmx/regionconfiguration_object.h"
#include "hmx/update_popup_object.h"
#include "support/documents.h"

// Random records of every kind pass through all three encodings in every order; the result must equal the original. Numbers at
// every limit are written by another library and read into a member of each type, which must either have the same value or refuse
// it. Every character passes through each encoding, and byte sequences that only look like characters must be refused.

namespace campaign {
namespace {

using kelo::mimetypes::MimeTypeID;
using Json = nlohmann::json;

constexpr std::array encodings{MimeTypeID::json, MimeTypeID::msgpack, MimeTypeID::ixobin};

// --- Random records -----------------------------------------------------------------------------------------------------------

int drawInt(Random& random) {
    constexpr int edges[] = {0,
                             1,
                             -1,
                             23,
                             24,
                             -24,
                             -25,
                             127,
                             128,
                             -32,
                             -33,
                             -128,
                             -129,
                             255,
                             256,
                             32767,
                             32768,
                             -32768,
                             -32769,
                             65535,
                             65536,
                             std::numeric_limits<int>::max(),
                             std::numeric_limits<int>::min()};
    if (random.below(3) == 0) return edges[random.below(std::size(edges))];
    return static_cast<int>(static_cast<std::uint32_t>(random.below(1ULL << 32U)) >> random.below(32));
}

float drawFloat(Random& random) {
    constexpr float edges[] = {0.0F,
                               -0.0F,
                               1.0F,
                               0.1F,
                               -1.5F,
                               16777216.0F,
                               16777215.0F,
                               std::numeric_limits<float>::max(),
                               std::numeric_limits<float>::lowest(),
                               std::numeric_limits<float>::min(),
                               std::numeric_limits<float>::denorm_min(),
                               65504.0F,
                               5.9604645e-8F};
    if (random.below(3) == 0) return edges[random.below(std::size(edges))];
    const auto any = std::bit_cast<float>(static_cast<std::uint32_t>(random.below(1ULL << 32U)));
    return std::isfinite(any) ? any : 0.5F;
}

void appendCharacter(std::string& text, std::uint32_t code) {
    const auto put = [&](std::uint32_t byte) { text += static_cast<char>(static_cast<std::uint8_t>(byte)); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xc0U | code >> 6U);
        put(0x80U | (code & 63U));
    } else if (code < 0x10000) {
        put(0xe0U | code >> 12U);
        put(0x80U | (code >> 6U & 63U));
        put(0x80U | (code & 63U));
    } else {
        put(0xf0U | code >> 18U);
        put(0x80U | (code >> 12U & 63U));
        put(0x80U | (code >> 6U & 63U));
        put(0x80U | (code & 63U));
    }
}

bool isCharacter(std::uint32_t code) {
    return code < 0x110000 && (code < 0xd800 || code > 0xdfff);
}

std::string drawText(Random& random) {
    std::string text;
    constexpr std::uint32_t upTo[] = {0x80, 0x80, 0x20, 0x800, 0x10000, 0x110000};
    for (std::uint64_t left = random.below(random.below(20) == 0 ? 400 : 12); left > 0; --left) {
        const auto code = static_cast<std::uint32_t>(random.below(upTo[random.below(std::size(upTo))]));
        if (isCharacter(code)) appendCharacter(text, code);
    }
    return text;
}

template <class V>
void fill(V& value, Random& random, unsigned depth);

template <class T, class... Rows>
void fillRows(T& value, Random& random, unsigned depth, kelo::record::Table<T, Rows...>) {
    (fill(value.*Rows::member, random, depth + 1), ...);
}

template <class V>
void fill(V& value, Random& random, unsigned depth) {
    if constexpr (std::is_same_v<V, bool>) {
        value = random.below(2) == 0;
    } else if constexpr (std::is_same_v<V, int>) {
        value = drawInt(random);
    } else if constexpr (std::is_same_v<V, float>) {
        value = drawFloat(random);
    } else if constexpr (std::is_same_v<V, std::string>) {
        value = drawText(random);
    } else if constexpr (std::is_same_v<V, kelo::url>) {
        value = kelo::url{drawText(random)};
    } else if constexpr (std::is_same_v<V, std::UUID>) {
        std::array<std::uint8_t, std::UUID::byteCount> bytes;
        for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random.below(256));
        value = std::UUID{bytes};
    } else if constexpr (std::is_enum_v<V>) {
        value = static_cast<V>(random.below(kelo::record::detail::namesOf<V>.size()));
    } else if constexpr (kelo::record::detail::isOptional<V>) {
        if (random.below(4) != 0) {
            value.emplace();
            fill(*value, random, depth);
        }
    } else if constexpr (kelo::record::detail::isShared<V>) {
        value = std::make_shared<std::remove_const_t<typename V::element_type>>();
        fill(*value, random, depth);
    } else if constexpr (kelo::record::detail::isVector<V>) {
        value.resize(random.below(depth > 3 ? 2 : 4));
        for (auto& element : value) fill(element, random, depth);
    } else {
        fillRows(value, random, depth, kelo::record::TableOf<V>{});
    }
}

struct Tally {
    unsigned records = 0;
    unsigned conversions = 0;
    unsigned refused = 0;
    unsigned changed = 0;
};

template <class T>
void throughAll(Random& random, Tally& tally, Report& report) {
    T first{};
    fill(first, random, 0);
    std::array order = encodings;
    for (std::size_t i = order.size(); i > 1; --i) std::swap(order[i - 1], order[random.below(i)]);
    ++tally.records;
    T value = kelo::record::deepCopy(first);
    // In a circle: the last step leads from the third encoding back to the first.
    for (const std::size_t step : {0U, 1U, 2U, 0U}) {
        std::string document;
        T read{};
        std::string wrong = support::writeDocument(order[step], value, document);
        if (wrong.empty()) wrong = support::readDocument(order[step], document, read);
        ++tally.conversions;
        if (!wrong.empty()) {
            ++tally.refused;
            report.note(std::string{kelo::record::nameOf<T>} + ": " + wrong);
            return;
        }
        if (!kelo::record::equal(first, read)) {
            ++tally.changed;
            report.note(std::string{kelo::record::nameOf<T>} + " changed");
            return;
        }
        value = std::move(read);
    }
}

template <class... Types>
void randomRecords(unsigned count, Random& random, Tally& tally, Report& report) {
    using Through = void (*)(Random&, Tally&, Report&);
    constexpr Through kinds[] = {&throughAll<Types>...};
    for (unsigned i = 0; i < count; ++i) kinds[random.below(std::size(kinds))](random, tally, report);
}

// --- Numbers ------------------------------------------------------------------------------------------------------------------

std::vector<Json> edgeNumbers() {
    std::vector<Json> numbers;
    for (unsigned bit = 0; bit < 64; ++bit) {
        for (const int delta : {-1, 0, 1}) {
            const std::uint64_t value = (std::uint64_t{1} << bit) + static_cast<std::uint64_t>(delta);
            numbers.emplace_back(value);
            if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
                numbers.emplace_back(-static_cast<std::int64_t>(value));
                numbers.emplace_back(-static_cast<std::int64_t>(value) - 1);
            }
            numbers.emplace_back(static_cast<double>(value));
            numbers.emplace_back(-static_cast<double>(value) - 0.5);
        }
    }
    for (const double value :
         {0.1, -0.0, 1e-45, 1e-46, 3.4028234663852886e38, 3.4028235677973366e38, 3.5e38, 1e308, 5e-324, 1.0 / 3})
        numbers.emplace_back(value);
    return numbers;
}

// Whether a member of type V may have this value for the number: the exact one, except that a float may have the value nearest to
// a fraction.
template <class V>
bool mayHold(const Json& number, V held) {
    if constexpr (std::is_same_v<V, int>) {
        return number.is_number_integer() && (number.is_number_unsigned() ? number.get<std::uint64_t>() < 1ULL << 31U : true) &&
               number.get<std::int64_t>() == held;
    } else {
        if (number.is_number_float()) return static_cast<V>(number.get<double>()) == held;
        // Both are integers of at most 64 bits here, which a long double holds.
        const long double exact = number.is_number_unsigned() ? static_cast<long double>(number.get<std::uint64_t>())
                                                              : static_cast<long double>(number.get<std::int64_t>());
        return static_cast<long double>(held) == exact;
    }
}

// Whether the number must be accepted, because the member can hold it exactly.
template <class V>
bool mustHold(const Json& number) {
    if constexpr (std::is_same_v<V, int>) {
        if (!number.is_number_integer()) return false;
        if (number.is_number_unsigned()) return number.get<std::uint64_t>() < 1ULL << 31U;
        return number.get<std::int64_t>() >= std::numeric_limits<int>::min() &&
               number.get<std::int64_t>() <= std::numeric_limits<int>::max();
    } else {
        return number.is_number_float() && std::isfinite(static_cast<V>(number.get<double>()));
    }
}

std::string dumped(const Json& value, MimeTypeID encoding) {
    std::string document;
    if (encoding == MimeTypeID::json) {
        document = value.dump();
    } else if (encoding == MimeTypeID::msgpack) {
        Json::to_msgpack(value, document);
    } else {
        Json::to_cbor(value, document);
    }
    return document;
}

template <class V>
void readNumbers(const std::vector<Json>& numbers, unsigned& asked, unsigned& wrong, Report& report) {
    for (const MimeTypeID encoding : encodings) {
        for (const Json& number : numbers) {
            ++asked;
            V held{};
            const std::string refusal = support::readDocument(encoding, dumped(number, encoding), held);
            if (refusal.empty() ? mayHold(number, held) : !mustHold<V>(number)) continue;
            ++wrong;
            report.note(number.dump() + (refusal.empty() ? " became " + std::to_string(held) : " was refused: " + refusal));
        }
    }
}

// --- Characters ---------------------------------------------------------------------------------------------------------------

void everyCharacter(unsigned step, unsigned& strings, unsigned& wrong, Report& report) {
    const auto check = [&](const std::string& text) {
        ++strings;
        for (const MimeTypeID encoding : encodings) {
            std::string document;
            std::string read;
            std::string fault = support::writeDocument(encoding, text, document);
            if (fault.empty()) fault = support::readDocument(encoding, document, read);
            std::string foreign;
            const std::string foreignFault = support::readDocument(encoding, dumped(Json(text), encoding), foreign);
            if (fault.empty() && foreignFault.empty() && read == text && foreign == text) continue;
            ++wrong;
            report.note("characters changed: " + fault + foreignFault);
        }
    };
    for (std::uint32_t from = 0; from < 0x110000; from += 64 * step) {
        std::string text;
        for (std::uint32_t code = from; code < from + 64; ++code) {
            if (isCharacter(code)) appendCharacter(text, code);
        }
        check(text);
    }
}

// Every sequence of up to three bytes that is not a character, and some of four that look like one. Independent of the table
// that the readers use: a sequence is not UTF-8 if `appendCharacter` does not make it from any code.
void everyImpostor(unsigned step, unsigned& strings, unsigned& wrong, Report& report) {
    const auto refuse = [&](const std::string& bytes) {
        ++strings;
        const std::array documents{
            std::pair{MimeTypeID::json, "\"" + bytes + "\""},
            std::pair{MimeTypeID::msgpack, std::string(1, static_cast<char>(0xa0U + bytes.size())) + bytes},
            std::pair{MimeTypeID::ixobin, std::string(1, static_cast<char>(0x60U + bytes.size())) + bytes}};
        for (const auto& [encoding, document] : documents) {
            std::string read;
            if (!support::readDocument(encoding, document, read).empty()) continue;
            ++wrong;
            report.note("bytes that are no characters were read as a string of " + std::to_string(bytes.size()));
        }
    };
    const auto byte = [](std::uint32_t value) { return static_cast<char>(static_cast<std::uint8_t>(value)); };
    for (std::uint32_t first = 0x80; first < 0x100; ++first) {
        refuse({byte(first)});
        for (std::uint32_t second = 0; second < 0x100; ++second) {
            const bool isPair = first >= 0xc2 && first <= 0xdf && second >= 0x80 && second <= 0xbf;
            if (!isPair && second >= 0x80) refuse({byte(first), byte(second)});
        }
    }
    for (std::uint32_t code = 0; code < 0x110000; code += step) {
        std::string text;
        if (!isCharacter(code)) {
            appendCharacter(text, code);  // half of a surrogate pair
            refuse(text);
            continue;
        }
        // The same code in more bytes than needed.
        if (code < 0x80) refuse({byte(0xc0U | code >> 6U), byte(0x80U | (code & 63U))});
        if (code < 0x800) refuse({byte(0xe0), byte(0x80U | code >> 6U), byte(0x80U | (code & 63U))});
        if (code < 0x10000)
            refuse({byte(0xf0), byte(0x80U | code >> 12U), byte(0x80U | (code >> 6U & 63U)), byte(0x80U | (code & 63U))});
        if (code >= 0x80) {
            appendCharacter(text, code);
            text.pop_back();
            refuse(text);  // cut short
        }
    }
    for (std::uint32_t code = 0x110000; code < 0x200000; code += 61 * step) {
        std::string text;
        appendCharacter(text, code);
        refuse(text);
    }
}

}  // namespace

void driveValues(const Scope& scope, Random& random, Report& report) {
    namespace hmx = kelo::hmx;
    Tally tally;
    randomRecords<hmx::displaymanager::DisplaysInfo, hmx::displaymanager::DisplayLayers, hmx::displaymanager::Displayable,
                  hmx::inputregions::HapticAndInputInfoPerHMI, hmx::inputregions::HapticTrigger, hmx::inputregions::ShutterInfo,
                  hmx::popups::Popup, hmx::popups::PopupStateUpdate, hmx::DisplayObject, hmx::DisplayableObject,
                  hmx::LayerconfigurationObject, hmx::RegionconfigurationObject, hmx::InsertRegionconfigurationObject,
                  hmx::PopupObject, hmx::UpdatePopupObject>(scope.times(100'000, 5'000), random, tally, report);
    unsigned numbers = 0;
    unsigned wrongNumbers = 0;
    const auto edges = edgeNumbers();
    readNumbers<int>(edges, numbers, wrongNumbers, report);
    readNumbers<float>(edges, numbers, wrongNumbers, report);
    unsigned strings = 0;
    unsigned wrongStrings = 0;
    everyCharacter(scope.times(1, 8), strings, wrongStrings, report);
    everyImpostor(scope.times(1, 97), strings, wrongStrings, report);
    report.fact("records", tally.records);
    report.fact("conversions", tally.conversions);
    report.atMost("changed", tally.changed, 0);
    report.atMost("refused", tally.refused, 0);
    report.fact("numbers at edges", numbers);
    report.atMost("wrong", wrongNumbers, 0);
    report.fact("strings", strings);
    report.atMost("wrong", wrongStrings, 0);
}

}  // namespace campaign
