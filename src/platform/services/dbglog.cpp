#include "sdk/services/dbglog.h"

std::string dbglog_scopedFunction(const char* signature, const char* /*logger*/) {
    return signature;
}
