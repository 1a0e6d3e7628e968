// The description of the gateway for other programs (OpenAPI 3.1), made of the records' tables and the routes.
#pragma once

#include <string>

namespace hmxgateway {

// As JSON. `changes`: whether the gateway allows them. Thread: any.
[[nodiscard]] std::string openApi(bool changes, const std::string& version);

}  // namespace hmxgateway
