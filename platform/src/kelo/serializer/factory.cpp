#include "kelo/serializer/factory.h"

#include "kelo/serializer/json_reader.h"
#include "kelo/serializer/json_writer.h"
#include "serializer/ixobin_reader.h"
#include "serializer/ixobin_writer.h"
#include "serializer/msgpack_reader.h"
#include "serializer/msgpack_writer.h"

namespace kelo::serializer {
namespace {

template <class Interface, class Json, class Msgpack, class Ixobin>
std::unique_ptr<Interface> create(mimetypes::MimeTypeID id) {
    switch (id) {
        case mimetypes::MimeTypeID::json:
            return std::make_unique<Json>();
        case mimetypes::MimeTypeID::msgpack:
            return std::make_unique<Msgpack>();
        case mimetypes::MimeTypeID::ixobin:
            return std::make_unique<Ixobin>();
        default:
            return nullptr;
    }
}

}  // namespace

std::unique_ptr<util::serializer::IStructuredSerializer> Factory::createSerializer(mimetypes::MimeTypeID id) {
    return create<util::serializer::IStructuredSerializer, JsonWriter, MsgpackWriter, IxobinWriter>(id);
}

std::unique_ptr<util::serializer::IStructuredPullDeserializer> Factory::createDeserializer(mimetypes::MimeTypeID id) {
    return create<util::serializer::IStructuredPullDeserializer, JsonReader, MsgpackReader, IxobinReader>(id);
}

}  // namespace kelo::serializer
