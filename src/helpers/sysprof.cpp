// The "sysprof" helper program.
#include "HelperMain.h"

int main(int argc, char** argv) { return helperMain("sysprof", argc, argv); }
