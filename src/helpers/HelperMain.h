// The one main of both helper programs.
#ifndef INVSCAN_HELPERMAIN_H
#define INVSCAN_HELPERMAIN_H

int helperMain(const char* helper, int argc, char** argv);

#endif
