#include "hmx/client/error.h"

namespace hmx::client {

bool Error::isPassing() const noexcept {
    switch (kind_) {
        case Kind::ended:
        case Kind::late:
        case Kind::noService:
        case Kind::serviceDead:
        case Kind::serviceHung:
        case Kind::serviceFull:
        case Kind::noDomain:
            return true;
        case Kind::refused:
            return status() == 503 || status() == 504 || status() == 408;
        default:
            return false;
    }
}

}  // namespace hmx::client
