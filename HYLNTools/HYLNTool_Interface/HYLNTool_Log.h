// Private: the log call with the caller's function, file and line filled in.
#ifndef HYLNTOOL_LOG_H
#define HYLNTOOL_LOG_H

#include "HYLNTool_HostInterface.h"

#define HYLN_LOG(level, ...) LogMessage(__func__, (level), __FILE__, __LINE__, __VA_ARGS__)
#define HYLN_LOG_AS(function, level, ...) LogMessage((function), (level), __FILE__, __LINE__, __VA_ARGS__)

#endif
