#include "serializer/ixobin_reader.h"

#include <cbor.h>

#include <algorithm>

#include "serializer/utf8.h"

// Reads RFC 8949 item by item with libcbor's streaming decoder: definite and indefinite lengths, every width of a number, half
// floats, tags. Unassigned simple values are well-formed too, but the decoder does not know them; they are recognised here.
//
// A tag says what a value means. Here all of them are skipped, except that of a UUID (37, on 16 bytes). A text of indefinite
// length is assembled from its chunks. Each chunk must be valid UTF-8 by itself, so no character is split between two chunks.

namespace kelo::serializer {
namespace {

constexpr std::uint64_t uuidTag = 37;

}  // namespace

// One item as the decoder reports it.
struct IxobinReader::DecodedItem {
    enum class Form : std::uint8_t { none, value, tag, bytes, bytesStart, textStart, stop };

    BinaryItem& value;
    Form form = Form::none;
    std::uint64_t tag = 0;
    std::size_t size = 0;  // of the item in bytes, without its content

    static DecodedItem& of(void* context, BinaryItem::Type type) noexcept {
        auto& found = *static_cast<DecodedItem*>(context);
        found.form = Form::value;
        found.value.type = type;
        return found;
    }
    template <class T>
    static void natural(void* context, T value) {
        of(context, BinaryItem::Type::integer).value.setUnsigned(value);
    }
    template <class T>
    static void negative(void* context, T value) {
        of(context, BinaryItem::Type::integer).value.setNegative(value);
    }
    template <class T>
    static void floating(void* context, T value) {
        of(context, BinaryItem::Type::floating).value.floating = value;
    }
    template <BinaryItem::Type type, Form form>
    static void string(void* context, cbor_data data, std::size_t size) {
        DecodedItem& found = of(context, type);
        found.form = form;
        found.value.text = {reinterpret_cast<const char*>(data), size};
    }
    template <BinaryItem::Type type>
    static void container(void* context, std::size_t count) {
        // The largest count has another meaning here. Reducing it changes nothing: no document is long enough to have so many
        // entries.
        of(context, type).value.count = std::min<std::uint64_t>(count, BinaryItem::untilBreak - 1);
    }
    template <BinaryItem::Type type>
    static void openContainer(void* context) {
        of(context, type).value.count = BinaryItem::untilBreak;
    }
    template <BinaryItem::Type type>
    static void plain(void* context) {
        of(context, type);
    }
    template <Form form>
    static void mark(void* context) {
        static_cast<DecodedItem*>(context)->form = form;
    }
    static void tagged(void* context, std::uint64_t tag) {
        mark<Form::tag>(context);
        static_cast<DecodedItem*>(context)->tag = tag;
    }
    static void boolean(void* context, bool value) { of(context, BinaryItem::Type::boolean).value.integer = value ? 1 : 0; }

    // Decodes the item at the start of `bytes`, which are not empty. Returns null, or what is wrong with it.
    const char* decode(std::span<const std::uint8_t> bytes) noexcept;
};

const char* IxobinReader::DecodedItem::decode(std::span<const std::uint8_t> bytes) noexcept {
    using Type = BinaryItem::Type;
    static constexpr cbor_callbacks callbacks = {
        .uint8 = natural<std::uint8_t>,
        .uint16 = natural<std::uint16_t>,
        .uint32 = natural<std::uint32_t>,
        .uint64 = natural<std::uint64_t>,
        .negint64 = negative<std::uint64_t>,
        .negint32 = negative<std::uint32_t>,
        .negint16 = negative<std::uint16_t>,
        .negint8 = negative<std::uint8_t>,
        .byte_string_start = mark<Form::bytesStart>,
        .byte_string = string<Type::opaque, Form::bytes>,
        .string = string<Type::text, Form::value>,
        .string_start = mark<Form::textStart>,
        .indef_array_start = openContainer<Type::array>,
        .array_start = container<Type::array>,
        .indef_map_start = openContainer<Type::map>,
        .map_start = container<Type::map>,
        .tag = tagged,
        .float2 = floating<float>,
        .float4 = floating<float>,
        .float8 = floating<double>,
        .undefined = plain<Type::opaque>,
        .null = plain<Type::null>,
        .boolean = boolean,
        .indef_break = mark<Form::stop>,
    };
    const std::uint8_t first = bytes[0];
    if ((first >= 0xe0 && first <= 0xf3) || first == 0xf8) {  // unassigned simple values, in one byte or two
        form = Form::value;
        value.type = Type::opaque;
        size = first == 0xf8 ? 2 : 1;
        if (bytes.size() < size) return cutShort;
        return size == 2 && bytes[1] < 32 ? "a malformed simple value" : nullptr;
    }
    form = Form::none;
    const cbor_decoder_result result = cbor_stream_decode(bytes.data(), bytes.size(), &callbacks, this);
    size = result.read;
    if (result.status == CBOR_DECODER_NEDATA) return cutShort;
    return result.status != CBOR_DECODER_FINISHED || form == Form::none ? "a byte that begins no item" : nullptr;
}

const char* IxobinReader::decode(BinaryItem& item) {
    DecodedItem found{item};
    std::uint64_t tag = 0;
    std::size_t at = offset();
    for (;;) {
        if (at == bytes().size()) return cutShort;
        if (const char* what = found.decode(bytes().subspan(at))) return what;
        at += found.size;
        if (found.form != DecodedItem::Form::tag) break;
        tag = found.tag;
    }
    item.end = at;
    switch (found.form) {
        case DecodedItem::Form::textStart:
        case DecodedItem::Form::bytesStart:
            if (const char* what = joinPieces(found.form == DecodedItem::Form::textStart, at, item)) return what;
            break;
        case DecodedItem::Form::stop:
            return "a break where a value is due";
        default:
            break;
    }
    const bool isBytes = found.form == DecodedItem::Form::bytes || found.form == DecodedItem::Form::bytesStart;
    if (isBytes && tag == uuidTag && item.text.size() == std::UUID::byteCount) item.type = BinaryItem::Type::uuid;
    return nullptr;
}

const char* IxobinReader::joinPieces(bool isText, std::size_t at, BinaryItem& item) {
    const auto type = isText ? BinaryItem::Type::text : BinaryItem::Type::opaque;
    scratch_.clear();
    for (;;) {
        DecodedItem piece{item};
        if (at == bytes().size()) return cutShort;
        if (const char* what = piece.decode(bytes().subspan(at))) return what;
        at += piece.size;
        if (piece.form == DecodedItem::Form::stop) break;
        if (piece.form != (isText ? DecodedItem::Form::value : DecodedItem::Form::bytes) || item.type != type) {
            return "a string has a piece of another type";
        }
        if (isText && !isValidUtf8(item.text)) return fault::notUtf8;
        scratch_.append(item.text);
    }
    item.type = type;
    item.end = at;
    item.text = scratch_;
    return nullptr;
}

}  // namespace kelo::serializer
