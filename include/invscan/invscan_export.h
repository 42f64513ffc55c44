// Symbol visibility: the library is built with hidden visibility and exports only
// what carries INVSCAN_API.
#ifndef INVSCAN_EXPORT_H
#define INVSCAN_EXPORT_H

#if defined(_WIN32)
#define INVSCAN_API
#else
#define INVSCAN_API __attribute__((visibility("default")))
#endif

#endif
