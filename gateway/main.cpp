#include "process.h"

int main(int argc, char** argv) {
    return hmxgateway::runProcess(argc, argv);
}
