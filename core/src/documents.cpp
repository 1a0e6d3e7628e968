// There is one reader and one writer for each encoding and thread. They are restarted for every document. While one is in use, no
// foreign code is called, so a thread never needs two at once.
#include "core/documents.h"

#include <array>
#include <cstddef>
#include <memory>

#include "kelo/errors.h"
#include "kelo/serializer/factory.h"

namespace kelo {

namespace {

// The calling thread's own, created when first needed. Null, with the error recorded, if the type has no structured encoding.
template <class Coder>
Coder* threadsOwn(const MimeType& mimeType, std::unique_ptr<Coder> (*make)(mimetypes::MimeTypeID)) {
    constexpr auto count = static_cast<std::size_t>(mimetypes::MimeTypeID::ixobin) + 1;
    thread_local std::array<std::unique_ptr<Coder>, count> coders;
    auto& coder = coders.at(static_cast<std::size_t>(mimeType.id()));
    if (!coder) coder = make(mimeType.id());
    if (!coder) {
        std::ErrorOutput{errors::Error, errors::unknownMimeType, mimeType.empty() ? "no mime type" : mimeType.text()};
    }
    return coder.get();
}

}  // namespace

bool writeDocument(util::ByteBufferWriter& buffer, const MimeType& mimeType, BodyView body) {
    auto* const writer = threadsOwn(mimeType, &serializer::Factory::createSerializer);
    return writer == nullptr || writer->start(buffer) || body.write(*writer, body.value) || writer->finish();
}

bool readDocument(std::span<const std::uint8_t> document, const MimeType& mimeType, ResultView result) {
    auto* const reader = threadsOwn(mimeType, &serializer::Factory::createDeserializer);
    return reader == nullptr || reader->start(util::ByteBufferReader{document}) || result.read(*reader, result.value) ||
           reader->finish();
}

}  // namespace kelo
