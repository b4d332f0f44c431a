// Data files of a company: opens, the posting FileSet and the internal handles.
#include "OpenDat.h"
