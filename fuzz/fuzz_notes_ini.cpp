// notes.ini as the runtime reads it at start-up: the input is the file. A start
// that succeeds is followed by the reads of the settings that the library and the
// runtime's own services make (data directory, zone, server name).
#include <cstdio>
#include <cstring>
#include <fstream>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {
std::string iniPath;
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    loadRuntime();
    iniPath = makeWorkDir("ini") + "/notes.ini";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // A new file each time: rewriting one in place makes the file system flush it.
    std::remove(iniPath.c_str());
    {
        std::ofstream ini(iniPath, std::ios::binary | std::ios::trunc);
        ini.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    if (startRuntime(iniPath) != NOERROR)
        return 0;

    // The library's start-up reads the data directory into a 256-byte buffer.
    char directory[256];
    if (!HyLNUtilities::GetNotesINIvarString("Directory", directory) || directory[0] == '\0')
        fail("the runtime started without a data directory it can report");
    if (std::strlen(directory) >= sizeof directory)
        fail("the data directory came back without its terminator");
    HyLNUtilities::GetNotesINIvarLong("HySimTimeZone");

    int zone = 0, dst = 0;
    HyLNUtilities::GetDominoTimeZone(&zone, &dst);
    INTLFORMAT intl;
    HyLNUtilities::GetIntlDateTimeFormat(&intl);
    TIMEDATE now;
    HyLNUtilities::GetCurrentTimeDate(&now);
    std::string text;
    HyLNUtilities::GetTimeString(now, text);

    // Names ending in "/" take the rest from the local server's name.
    char canonical[MAXUSERNAME + 1];
    HY_DNCanonicalize(0, nullptr, "Jane Doe/", canonical, sizeof canonical, nullptr);

    HY_NotesTerm();
    return 0;
}
