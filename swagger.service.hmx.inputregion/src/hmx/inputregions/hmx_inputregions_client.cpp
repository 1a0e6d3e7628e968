#include "hmx/inputregions/hmx_inputregions_client.h"

#include "hmx/inputregions/service_path.h"

namespace kelo::hmx::inputregions {

namespace {

using std::nullptr_t;
using std::string;
template <class T>
using Handler = std::unique_ptr<IResponseHandler<T>>;

}  // namespace

Hmx_inputregionsClient::Hmx_inputregionsClient(IKeloApi* api, const string& mimeType) : stub_{api, servicePath, mimeType} {}

void* Hmx_inputregionsClient::getActiveProximity(Handler<bool>&& handler, const string& display) {
    return stub_.request({"retrieve", "/*/proximity", "bool"}, std::move(handler), {display});
}

void* Hmx_inputregionsClient::getActiveShutter(Handler<ShutterInfo>&& handler, const string& display) {
    return stub_.request({"retrieve", "/*/shutter", "ShutterInfo"}, std::move(handler), {display});
}

void* Hmx_inputregionsClient::getActiveForce(Handler<ForceInfo>&& handler, const string& display) {
    return stub_.request({"retrieve", "/*/force", "ForceInfo"}, std::move(handler), {display});
}

void* Hmx_inputregionsClient::getInputRegionsForDisplay(Handler<HapticAndInputInfoSorted>&& handler, const string& display) {
    return stub_.request({"retrieve", "/*", "HapticAndInputInfoSorted"}, std::move(handler), {display});
}

void* Hmx_inputregionsClient::getInputRegionsForHMI(Handler<HapticAndInputInfoSorted>&& handler, const string& display,
                                                    const string& hmi) {
    return stub_.request({"retrieve", "/*/*", "HapticAndInputInfoSorted"}, std::move(handler), {display, hmi});
}

void* Hmx_inputregionsClient::setPower(Handler<nullptr_t>&& handler, const string& display, bool on) {
    return stub_.request({"update", "/*/power"}, std::move(handler), {display}, on);
}

void* Hmx_inputregionsClient::setProximityActive(Handler<nullptr_t>&& handler, const string& display, bool active) {
    return stub_.request({"update", "/*/proximity"}, std::move(handler), {display}, active);
}

void* Hmx_inputregionsClient::setShutterActive(Handler<nullptr_t>&& handler, const string& display, bool active) {
    return stub_.request({"update", "/*/shutter"}, std::move(handler), {display}, active);
}

void* Hmx_inputregionsClient::triggerHapticFeedback(Handler<nullptr_t>&& handler, const string& display,
                                                    const HapticTrigger& trigger) {
    return stub_.request({"update", "/*/hapticfeedback"}, std::move(handler), {display}, trigger);
}

void* Hmx_inputregionsClient::updateInputRegions(Handler<nullptr_t>&& handler, const string& display, const string& hmi,
                                                 const HapticAndInputInfoPerHMI& info) {
    // No deadline: a change may be carried out late, and the sender must know about it.
    return stub_.request({.command = "update", .pattern = "/*/*", .hasDeadline = false}, std::move(handler), {display, hmi},
                         info);
}

}  // namespace kelo::hmx::inputregions
