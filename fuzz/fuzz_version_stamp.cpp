// ELF files as hyln's version-stamp reader walks them (header, section table, section
// names): any bytes give a stamp or nothing, never a read outside the file.
#include <cstdio>

#include "fuzz_support.h"
#include "version_stamp.h"

using namespace hyln_fuzz;

namespace {

std::string scratchFile;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    scratchFile = makeWorkDir("elf") + "/input.so";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FILE* file = std::fopen(scratchFile.c_str(), "wb");
    if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0)
        fail("cannot write the scratch file");
    std::string stamp = hyln::readVersionStamp(scratchFile);
    if (stamp.size() > 4096 || stamp.find('\0') != std::string::npos)
        fail("a stamp longer than its limit or holding a NUL byte");
    return 0;
}
