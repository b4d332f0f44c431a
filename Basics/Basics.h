// The whole public interface of the library and the platform it runs on: include this
// one header and link the `basics` target.
#ifndef BASICS_BASICS_H_
#define BASICS_BASICS_H_

// Platform: record manager, utility library, window functions, file creation.
#include "dialog.h"
#include "file_creation.h"
#include "record_manager.h"
#include "utility.h"
#include "zor_types.h"

// Library.
#include "CHART.h"
#include "COST.h"
#include "CustDcl.h"
#include "CustomFieldsFolder.h"
#include "DirectDeposit.h"
#include "EmployeeDcl.h"
#include "EventLogDcl.h"
#include "GENERALFLD.h"
#include "General.h"
#include "GeneralUtils.h"
#include "InvTagDcl.h"
#include "JOBEST.h"
#include "JOURNAL.h"
#include "KestrelInterface.h"
#include "LineItemDcl.h"
#include "OPTIONDB.h"
#include "OpenDat.h"
#include "PHASE.h"
#include "PROJECT.h"
#include "RecIDUnion.h"
#include "RecordCache.h"
#include "RecptTagDcl.h"
#include "VendorDcl.h"
#include "journldb.h"

#endif  // BASICS_BASICS_H_
