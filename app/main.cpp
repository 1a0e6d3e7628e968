#include "startup.h"

int main(int argc, char* argv[]) {
    return hmx::run(argc, argv);
}
