// Any bytes as the body of each request that has one, and as each upstream answer: what can be read is written in every encoding
// and must read back as the same.
#include <string>

#include "hmx/displaymanager/display_layers_array_inner.h"
#include "hmx/displaymanager/displayables_info.h"
#include "hmx/displaymanager/displays_info.h"
#include "hmx/inputregions/haptic_and_input_info_per_hmi.h"
#include "hmx/insert_regionconfiguration_object.h"
#include "hmx/popups/popup.h"
#include "hmx/popups/popup_state_update.h"
#include "hmx/update_popup_object.h"
#include "hmx/update_regionconfiguration_object.h"
#include "walk.h"

namespace {

constexpr fuzz::MimeTypeID encodings[] = {fuzz::MimeTypeID::json, fuzz::MimeTypeID::msgpack, fuzz::MimeTypeID::ixobin};

template <class Body>
bool areSame(const Body& one, const Body& other) {
    if constexpr (kelo::record::Record<Body>) {
        return kelo::record::equal(one, other);
    } else {
        // Of any type: compared as JSON text, which distinguishes 2 from 2.0, and 0 from -0.0.
        const auto text = [](const Body& body) {
            const auto writer = kelo::serializer::Factory::createSerializer(fuzz::MimeTypeID::json);
            util::ByteBufferWriter out;
            fuzz::require(!writer->start(out) && !kelo::record::writeValue(*writer, body) && !writer->finish(), "it is written");
            return std::string{reinterpret_cast<const char*>(out.bytes().data()), out.size()};
        };
        return text(one) == text(other);
    }
}

template <class Body>
void asBody(fuzz::MimeTypeID encoding, fuzz::Bytes bytes) {
    const auto reader = kelo::serializer::Factory::createDeserializer(encoding);
    Body first{};
    if (!fuzz::accepts(*reader, bytes, [&](auto& from) { return kelo::record::readValue(from, first); })) return;
    for (const auto other : encodings) {
        const auto writer = kelo::serializer::Factory::createSerializer(other);
        util::ByteBufferWriter out;
        if (writer->start(out) || kelo::record::writeValue(*writer, first) || writer->finish()) {
            fuzz::require(false, "what is read is written");
        }
        const auto again = kelo::serializer::Factory::createDeserializer(other);
        Body second{};
        fuzz::require(fuzz::accepts(*again, out.bytes(), [&](auto& from) { return kelo::record::readValue(from, second); }),
                      "what is written is read");
        fuzz::require(areSame(first, second), "what is written is what was read");
    }
}

using Kind = void (*)(fuzz::MimeTypeID, fuzz::Bytes);
constexpr Kind kinds[] = {
    &asBody<kelo::hmx::InsertRegionconfigurationObject>,
    &asBody<kelo::hmx::UpdateRegionconfigurationObject>,
    &asBody<kelo::hmx::UpdatePopupObject>,
    &asBody<kelo::toluglobals::ToluParams>,
    &asBody<kelo::hmx::displaymanager::DisplaysInfo>,
    &asBody<kelo::hmx::displaymanager::DisplayablesInfo>,
    &asBody<kelo::hmx::displaymanager::DisplayLayersArrayInner>,
    &asBody<kelo::hmx::inputregions::HapticAndInputInfoPerHMI>,
    &asBody<kelo::hmx::popups::Popup>,
    &asBody<kelo::hmx::popups::PopupStateUpdate>,
};

}  // namespace

// The first byte selects the type, the second the encoding.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    kinds[data[0] % std::size(kinds)](encodings[data[1] % std::size(encodings)], {data + 2, size - 2});
    return 0;
}
