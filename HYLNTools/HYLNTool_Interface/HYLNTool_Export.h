// Visibility of the library's interface: everything else stays hidden.
#ifndef HYLNTOOL_EXPORT_H
#define HYLNTOOL_EXPORT_H
#define HYLN_EXPORT __attribute__((visibility("default")))
#endif
