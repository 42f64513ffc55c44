#include "invscan/File.h"

const String File::pathSeparator("/");
