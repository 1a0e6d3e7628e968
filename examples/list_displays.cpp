// Prints the displays that the bridge shows.
#include <iostream>

#include "core/blocking_client.h"
#include "hmx/display_object.h"

int main() {
    kelo::BlockingClient hmx{"/hmx"};
    kelo::hmx::DisplayObjectListPage page;
    const kelo::Response answer = hmx.retrieve("/displays", page);
    if (answer.status() != 200) {
        std::cerr << "list_displays: " << answer.toString() << '\n';
        return 1;
    }
    for (const auto& display : page.data) std::cout << display->id.toString() << "  " << display->name << '\n';
}
