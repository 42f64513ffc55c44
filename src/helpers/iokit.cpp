// The "iokit" helper program.
#include "HelperMain.h"

int main(int argc, char** argv) { return helperMain("iokit", argc, argv); }
