#pragma once

#include <string>

/// The text of a scoped function trace: the signature of the function as the log shows it.
std::string dbglog_scopedFunction(const char* signature, const char* logger);
