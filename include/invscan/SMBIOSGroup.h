// Inventory group 24: firmware, system, baseboard and enclosure identity from the
// shared SMBIOS table, with a fingerprint of the model and firmware strings and the
// BIOS power-on password state.
#ifndef INVSCAN_SMBIOSGROUP_H
#define INVSCAN_SMBIOSGROUP_H

#include "ZelTable.h"
#include "invscan_export.h"

class SMBIOSTable;

class INVSCAN_API SMBIOSGroup : public ZelGroup {
public:
    SMBIOSGroup();
    ~SMBIOSGroup() override;

    ZelTable* getTable() override;
    // One row from the shared table; null when there is no SMBIOS data.
    ZelTable* getTableLeg();
    // The same over any table (tests, replays, tools).
    ZelTable* buildTable(const SMBIOSTable* table);
};

#endif
