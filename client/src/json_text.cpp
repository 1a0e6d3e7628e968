#include "hmx/client/json_text.h"

#include <span>

#include "kelo/payload.h"
#include "kelo/serializer/factory.h"
#include "kelo/std/error_storage.h"

namespace hmx::client {
namespace {

using kelo::mimetypes::MimeTypeID;

std::span<const std::uint8_t> bytesOf(std::string_view text) noexcept {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

JsonText::JsonText(std::string_view text)
    : text_{text}, reader_{kelo::serializer::Factory::createDeserializer(MimeTypeID::json)} {
    note(reader_->start(util::ByteBufferReader{bytesOf(text)}));
}

JsonText::~JsonText() {
    if (isBad_) (void)std::ErrorStorage::takeReason();  // whoever asked tells it in other words
}

bool JsonText::isAtObjectEnd() {
    bool end = true;
    note(isBad_ || reader_->atObjectEnd(end));
    return isBad_ || end;
}

bool JsonText::isAtArrayEnd() {
    bool end = true;
    note(isBad_ || reader_->atArrayEnd(end));
    return isBad_ || end;
}

std::string_view JsonText::value() {
    return textOf([this] { note(isBad_ || reader_->skipValue()); });
}

Json JsonText::tree() {
    const std::string_view text = value();
    return isBad_ ? Json{} : treeOf(text);
}

std::string JsonText::string() {
    std::string_view text;
    note(isBad_ || reader_->readString(text));
    return std::string{isBad_ ? std::string_view{} : text};
}

std::int64_t JsonText::integer() {
    std::int64_t number = 0;
    note(isBad_ || reader_->readInt(number));
    return number;
}

bool JsonText::boolean() {
    bool value = false;
    note(isBad_ || reader_->readBool(value));
    return value;
}

bool JsonText::isDone() {
    note(isBad_ || reader_->finish());
    return !isBad_;
}

Json treeOf(std::string_view text) {
    return decode(kelo::Payload::borrow(bytesOf(text), kelo::MimeType{MimeTypeID::json}));
}

}  // namespace hmx::client
