// Keeps the BIOS date of the DMI MIF file "qtvbios.mif" (current directory) in step
// with the date SMBIOS reports.
#ifndef INVSCAN_QTVBIOS_MIF_H
#define INVSCAN_QTVBIOS_MIF_H

#include "invscan_export.h"

// date: YYYY-MM-DD. Rewrites the BIOS_DATE value line as MM/DD/YY when the file's value
// is UNKNOWN or differs. A file it cannot read, does not understand (no value line
// after BIOS_DATE, more than 100 lines) or that already agrees is left untouched.
INVSCAN_API int qtvbios_mif_rewrite(char* date);
// Same for a file at `path`.
INVSCAN_API int qtvbios_mif_rewrite_file(const char* path, const char* date);

// MM/DD/YY by position from YYYY-MM-DD; malloc'ed, caller frees; null for null or a
// text shorter than ten characters.
INVSCAN_API char* changeFormat(const char* date);
// The text between the first double quote and the next (or the end of the line);
// malloc'ed; null when there is no quote. The closing quote in `line` becomes NUL.
INVSCAN_API char* extractDate(char* line);
// 0 when text holds any placeholder of bogus_strings (or is null), 1 otherwise.
INVSCAN_API int notBogus(const char* text);

#endif
