#include "serializer/msgpack_reader.h"

#include <array>
#include <bit>

// Reads every form of the format, whether or not it is the shortest. The first byte of a value gives its form. In most forms a
// big-endian number follows: the value itself, the length of what follows, or the number of entries of a container. Our documents
// do not use byte strings and extensions: they are skipped, and refused where a value is expected.

namespace kelo::serializer {
namespace {

enum class Form : std::uint8_t { none, null, boolean, opaque, float32, float64, natural, integer, text, array, map };

struct Head {
    Form form = Form::none;
    std::uint8_t width = 0;  // of the number, in bytes
    std::uint8_t extra = 0;  // bytes after the number that it does not count
};

// For the first bytes 0xc0 to 0xdf. All others contain the number themselves.
constexpr std::array<Head, 32> heads = {{
    {Form::null},          {Form::none},         {Form::boolean},      {Form::boolean},       // c0
    {Form::opaque, 1},     {Form::opaque, 2},    {Form::opaque, 4},    {Form::opaque, 1, 1},  // c4: bytes, then extensions
    {Form::opaque, 2, 1},  {Form::opaque, 4, 1}, {Form::float32, 4},   {Form::float64, 8},    // c8
    {Form::natural, 1},    {Form::natural, 2},   {Form::natural, 4},   {Form::natural, 8},    // cc
    {Form::integer, 1},    {Form::integer, 2},   {Form::integer, 4},   {Form::integer, 8},    // d0
    {Form::opaque, 0, 2},  {Form::opaque, 0, 3}, {Form::opaque, 0, 5}, {Form::opaque, 0, 9},  // d4: short extensions
    {Form::opaque, 0, 17}, {Form::text, 1},      {Form::text, 2},      {Form::text, 4},       // d8
    {Form::array, 2},      {Form::array, 4},     {Form::map, 2},       {Form::map, 4},        // dc
}};

std::uint64_t bigEndian(const std::uint8_t* at, std::size_t width) noexcept {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < width; ++i) number = number << 8U | at[i];
    return number;
}

}  // namespace

const char* MsgpackReader::decode(BinaryItem& item) {
    using Type = BinaryItem::Type;
    const std::uint8_t* const at = bytes().data() + offset();
    const std::uint8_t first = *at;
    Head head;
    std::uint64_t number = 0;
    if (first <= 0x7f || first >= 0xe0) {
        item.type = Type::integer;
        item.integer = first <= 0x7f ? std::int64_t{first} : std::int64_t{first} - 0x100;
        item.end = offset() + 1;
        return nullptr;
    }
    if (first <= 0x8f) {
        head.form = Form::map;
        number = first & 0x0fU;
    } else if (first <= 0x9f) {
        head.form = Form::array;
        number = first & 0x0fU;
    } else if (first <= 0xbf) {
        head.form = Form::text;
        number = first & 0x1fU;
    } else {
        head = heads[first - 0xc0U];
    }
    std::size_t left = bytes().size() - offset() - 1;
    if (left < head.width) return cutShort;
    if (head.width > 0) number = bigEndian(at + 1, head.width);
    left -= head.width;
    item.end = offset() + 1 + head.width;
    switch (head.form) {
        case Form::null:
            item.type = Type::null;
            return nullptr;
        case Form::boolean:
            item.type = Type::boolean;
            item.integer = first & 1U;
            return nullptr;
        case Form::natural:
            item.setUnsigned(number);
            return nullptr;
        case Form::integer: {
            const auto unused = static_cast<unsigned>(64 - 8 * head.width);
            item.type = Type::integer;
            item.integer = static_cast<std::int64_t>(number << unused) >> unused;
            return nullptr;
        }
        case Form::float32:
            item.type = Type::floating;
            item.floating = std::bit_cast<float>(static_cast<std::uint32_t>(number));
            return nullptr;
        case Form::float64:
            item.type = Type::floating;
            item.floating = std::bit_cast<double>(number);
            return nullptr;
        case Form::array:
        case Form::map:
            item.type = head.form == Form::map ? Type::map : Type::array;
            item.count = number;
            return nullptr;
        case Form::text:
        case Form::opaque:
            if (left < head.extra || left - head.extra < number) return cutShort;
            item.type = head.form == Form::text ? Type::text : Type::opaque;
            item.text = {reinterpret_cast<const char*>(at) + 1 + head.width, number};
            item.end += head.extra + number;
            return nullptr;
        case Form::none:
            break;
    }
    return "a byte that begins no value";
}

}  // namespace kelo::serializer
