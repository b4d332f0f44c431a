// The file-creation library: the key catalogue of every data file of a company.
#include "file_creation.h"
