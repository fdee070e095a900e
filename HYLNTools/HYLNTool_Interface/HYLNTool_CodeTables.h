// Tables that turn Domino item data types, item flags and note flags into words
// for the host's reports. Each ends with a terminating row (see the .cpp).
#ifndef HYLNTOOL_CODETABLES_H
#define HYLNTOOL_CODETABLES_H

#include "HYLNTool_Export.h"

struct HyLNCodeName {
    unsigned int code;
    const char* name;
};

// Ends with {0xFFFFFFFF, "UNKNOWN"} and then {0, nullptr}.
extern HYLN_EXPORT const HyLNCodeName notes_types[38];
// Both end with {0xFFFFFFFF, nullptr}.
extern HYLN_EXPORT const HyLNCodeName item_flags[10];
extern HYLN_EXPORT const HyLNCodeName note_flags[5];

#endif
