// The helper programs' side: variant trees from converted reports, and the complete
// standard output of "sysprof" and "iokit" (response line and dump).
#ifndef INVSCAN_REPORTVT_H
#define INVSCAN_REPORTVT_H

#include "common/report/Report.h"

#include <string>

struct VtNode;

namespace report {

// A new variant tree (root named "") with the same content; the caller deletes it.
VtNode* toVtTree(const Node& root);

// Response line and, when `root` is given, its dump.
std::string renderResponse(int result, const char* message, const Node* root);

// What the helper `helper` ("sysprof" or "iokit") prints: converted from a saved
// report when `fromFile` is given, else from the replay bundle, else gathered from
// the machine (and kept in the bundle when recording). A failure is still answered
// with a response line, and its reason is put in `failure` (left empty on success).
std::string helperOutput(const char* helper, const char* fromFile, std::string* failure = nullptr);

// Adds the memory section (wrapper item and one node per slot) from the memory
// devices of an SMBIOS structure table; nothing when the table has none.
void addMemoryModules(Node* systemProfiler, const std::string& smbiosTable);

// Gathers the live report of this platform; false with a reason when nothing could
// be read. Implemented per platform.
bool gatherLive(const char* helper, Node* root, std::string* err);

} // namespace report

#endif
