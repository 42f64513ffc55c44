#include "File.h"

const String File::pathSeparator("/");
