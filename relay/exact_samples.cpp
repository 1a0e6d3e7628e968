// When the engine encodes a sample to write it, it takes memory in pieces of 4 KiB, and a writer that keeps samples for late
// readers keeps them like that: 20 MiB for 5,000 elements of 300 bytes. One that is made from bytes that are encoded already has
// the size of these bytes. So samples are encoded first and then copied.
//
// Both steps need the engine's own description of the topic, which it hands out only with a sample that was read. So one is
// written and read here, in a partition that nobody else knows.
#include "exact_samples.h"

extern "C" {
#include <dds/ddsi/ddsi_serdata.h>
}

#include "names.h"

namespace hmxrelay {

ExactSamples::ExactSamples(const Participant& participant, const Topic& topic, const void* sample) {
    const std::string partition = "self/" + std::UUID{randomId()}.toString();
    const Entity publisher = participant.publisher(partition);
    const Entity subscriber = participant.subscriber(partition);
    const dds_entity_t made = participant.topic(topic);
    const Entity reader{dds_create_reader(subscriber.get(), made, readerQos(topic.keeping).get(), nullptr), topic.name};
    const Entity writer{dds_create_writer(publisher.get(), made, writerQos(topic.keeping, participant.network()).get(), nullptr),
                        topic.name};
    if (dds_write(writer.get(), sample) != DDS_RETCODE_OK) return;
    ddsi_serdata* read = nullptr;
    dds_sample_info_t info{};
    if (dds_takecdr(reader.get(), &read, 1, &info, DDS_ANY_STATE) != 1) return;
    type_ = read->type;
    ddsi_serdata_unref(read);
}

dds_return_t ExactSamples::write(dds_entity_t writer, const void* sample) const {
    if (type_ == nullptr) return dds_write(writer, sample);
    ddsi_serdata* const encoded = ddsi_serdata_from_sample(type_, SDK_DATA, sample);
    if (encoded == nullptr) return DDS_RETCODE_BAD_PARAMETER;
    const std::uint32_t size = ddsi_serdata_size(encoded);
    ddsrt_iovec_t bytes{};
    ddsi_serdata* const held = ddsi_serdata_to_ser_ref(encoded, 0, size, &bytes);
    ddsi_serdata* const exact = ddsi_serdata_from_ser_iov(type_, SDK_DATA, 1, &bytes, size);
    ddsi_serdata_to_ser_unref(held, &bytes);
    ddsi_serdata_unref(encoded);
    return exact == nullptr ? DDS_RETCODE_BAD_PARAMETER : dds_writecdr(writer, exact);
}

}  // namespace hmxrelay
