// The "iokit" helper program.
#include "helpers/HelperMain.h"

int main(int argc, char** argv) {
    return helperMain("iokit", argc, argv);
}
