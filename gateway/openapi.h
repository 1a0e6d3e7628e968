// The description of the gateway for other programs (OpenAPI 3.1), made of the records' tables and the routes.
#pragma once

#include <string>

namespace hmxgateway {

// What a gateway need not offer. Thread: any (a value).
struct Offered {
    bool changes = false;
    bool recordings = false;
};

// As JSON. Thread: any.
[[nodiscard]] std::string openApi(const Offered& offered, const std::string& version);

}  // namespace hmxgateway
