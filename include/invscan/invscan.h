// invscan: the whole public API in one include.
#ifndef INVSCAN_INVSCAN_H
#define INVSCAN_INVSCAN_H

#include "invscan_export.h"
#include "String.h"
#include "File.h"
#include "CcLog.h"
#include "Trace.h"
#include "KorCfg.h"
#include "Node.h"
#include "XmlKorParser.h"
#include "ZelDefs.h"
#include "ZelCatalogOther.h"
#include "ZelTableRow.h"
#include "ZelTable.h"
#include "ZelRender.h"
#include "md5.h"
#include "Toolbox.h"
#include "HWConfig.h"
#include "GroupFactory.h"
#include "ScanInfoGroup.h"
#include "BIOSROM.h"
#include "SMBIOSTable.h"
#include "SMMemory.h"
#include "SM_HWSecurity.h"
#include "SMBIOSGroup.h"
#include "qtvbios_mif.h"
#include "smbios.h"

#endif
