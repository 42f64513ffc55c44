// The host agent's configuration store: a process-wide map that the front end (or
// the host agent) fills. An absent key reads as the empty text.
#ifndef INVSCAN_KORCFG_H
#define INVSCAN_KORCFG_H

#include "invscan_export.h"
#include "String.h"

class INVSCAN_API KorCfg {
public:
    static String getKey(const String& key);
    static void setKey(const String& key, const String& value);
    static void removeKey(const String& key);
    static void clear();
};

#endif
