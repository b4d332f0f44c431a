// The exported host interface: its out-of-line members anchor the vtable in the library.
#include "KestrelInterface.h"

CKestrelInterface::CKestrelInterface() = default;

CKestrelInterface::CKestrelInterface(const CKestrelInterface& /*other*/) {}

CKestrelInterface::~CKestrelInterface() = default;

CKestrelInterface& CKestrelInterface::operator=(const CKestrelInterface& /*other*/) {
  return *this;
}
