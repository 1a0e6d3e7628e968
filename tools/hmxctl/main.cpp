#include "process.h"

int main(int argc, char** argv) {
    return hmxctl::runProcess(argc, argv);
}
