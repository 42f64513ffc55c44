// File helpers of the platform base library.
#ifndef INVSCAN_FILE_H
#define INVSCAN_FILE_H

#include "invscan_export.h"
#include "String.h"

class INVSCAN_API File {
public:
    static const String pathSeparator;
};

#endif
