#include "BrwMain/BrwMain.h"

int main(int argc, char** argv) {
    return Brw::main(argc, argv);
}
