// The "sysprof" helper program.
#include "helpers/HelperMain.h"

int main(int argc, char** argv) {
    return helperMain("sysprof", argc, argv);
}
