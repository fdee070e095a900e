// The one-line version stamps that the library and our simulated runtime carry in
// an unmapped ELF section named HyVersion.
#ifndef HYLN_VERSION_STAMP_H
#define HYLN_VERSION_STAMP_H

#include <string>

namespace hyln {

// The stamp of the ELF file at `path`; empty when the file is not a 64-bit ELF
// file or has no such section.
std::string readVersionStamp(const std::string& path);
// The file the library was loaded from.
std::string libraryFile();

} // namespace hyln

#endif
