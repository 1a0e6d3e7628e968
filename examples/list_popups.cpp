// Prints the popups of all displays, and which of them are on the screen.
#include <iostream>

#include "hmx/client/records.h"
#include "hmx/popup_object.h"

int main() try {
    hmx::client::Client hmx;
    for (const auto& popup : hmx.run(hmx::client::list<kelo::hmx::PopupObject>(hmx))) {
        std::cout << popup.display.value_or("") << '/' << popup.name << (popup.visible.value_or(false) ? "  visible\n" : "\n");
    }
} catch (const hmx::client::Error& error) {
    std::cerr << "list_popups: " << error.what() << '\n';
    return 1;
}
