#include "records/SigCoDec.h"

#include "platform/Assert.h"

IMPLEMENT_SERIAL_ABSTRACT(CSigCoDec, CObject, 1)

CSigCoDec& CSigCoDec::operator=(const CSigCoDec&) {
    SF_ASSERT(false, "SIGCODEC", 22);
    return *this;
}
