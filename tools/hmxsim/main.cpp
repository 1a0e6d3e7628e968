#include "process.h"

int main(int argc, char** argv) {
    return hmxsim::runProcess(argc, argv);
}
