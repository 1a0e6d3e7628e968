#include "layer_notes.h"

namespace hmxctl {

std::map<std::string, std::set<int>> inactiveLayers(Context& context) {
    try {
        return context.wait(readInactiveLayers(context.client, context.deadline));
    } catch (const Failure& failure) {
        if (failure.code() != ExitCode::serviceAbsent && failure.code() != ExitCode::timeout) throw;
        context.note(std::string{"inactive layers not told apart: "} + failure.what());
        return {};
    }
}

}  // namespace hmxctl
