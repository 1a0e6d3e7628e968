// Writes samples in a form that takes no more memory than they need.
#pragma once

#include "participant.h"

struct ddsi_sertype;

namespace hmxrelay {

// Of one topic. Thread: its owner's.
class ExactSamples {
public:
    // `sample`: any one of the topic; nobody else gets to see it. `participant` outlives this.
    ExactSamples(const Participant& participant, const Topic& topic, const void* sample);

    // Like dds_write.
    dds_return_t write(dds_entity_t writer, const void* sample) const;

private:
    const ddsi_sertype* type_ = nullptr;  // the topic's; null if it could not be found out
};

}  // namespace hmxrelay
