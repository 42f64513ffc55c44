// Text forms of attribute values: the debugging dump of toString(), the value
// writer the host agent uses for files (DMTF escaping, octets in hexadecimal), and
// the build stamp.
#ifndef INVSCAN_ZELRENDER_H
#define INVSCAN_ZELRENDER_H

#include "invscan_export.h"

#include <cstdio>

extern "C" {
INVSCAN_API extern const char VMQT_BuildDate[]; // yy/mm/dd
INVSCAN_API extern const char VMQT_BuildTime[]; // hh:mm:ss
}

// "yyyy-mm-dd-hh.mm.ss.000000" from the build stamp; a static buffer.
INVSCAN_API const char* getBuildDateVMQT();

// Escaped copy (new[]; delete[] it) of text, or text itself when it is empty.
INVSCAN_API wchar_t* dmtf_escape(const wchar_t* text);

INVSCAN_API void PrintZelAttribValueToFile(std::FILE* file, const unsigned char* block);
INVSCAN_API void PrintZelAttribValue(const unsigned char* block);
INVSCAN_API void PrintZelFloat(std::FILE* file, double value);
INVSCAN_API void PrintOctetStringToFile(std::FILE* file, const unsigned char* bytes,
                                        unsigned long count);
INVSCAN_API void PrintZelStringToFile(std::FILE* file, const unsigned char* counted);
INVSCAN_API void PrintZelTimeBlockToFile(std::FILE* file, const unsigned char* block);

#endif
