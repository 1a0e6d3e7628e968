#include "process.h"

int main(int argc, char** argv) {
    return hmxrelay::runProcess(argc, argv);
}
