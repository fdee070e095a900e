// Paths the library builds from a caller's texts: network and proxy paths, the
// '?'-separated list of additional scan directories, a scan path joined from a
// directory and a database path, the data directory of a discovery, and the
// instance name split into data directory and notes.ini. The input is a mode byte, the server name (NUL-ended), a database
// path (NUL-ended), then the directory text. Scans that would leave the scratch
// data directory are skipped: the runtime opens absolute paths as they are.
#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {

bool isAscii(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// True when the runtime would resolve `path` inside its data directory.
bool staysInDataDirectory(std::string path)
{
    std::replace(path.begin(), path.end(), '\\', '/');
    size_t network = path.find("!!");
    if (network != std::string::npos)
        path.erase(0, network + 2);
    return path.empty() || path[0] != '/';
}

bool everyPieceStays(const std::string& list)
{
    std::istringstream pieces(list);
    std::string piece;
    while (std::getline(pieces, piece, '?'))
        if (!staysInDataDirectory(piece))
            return false;
    return true;
}

unsigned short collectPath(void* context, SEARCH_MATCH*, ITEM_TABLE* summary)
{
    std::string path;
    HyLNUtilities::GetSummaryValue(summary, "$Path", path);
    static_cast<std::set<std::string>*>(context)->insert(path);
    return NOERROR;
}

void checkNetworkPath(const std::string& path)
{
    if (path.size() >= MAXPATH)
        fail("a network path is longer than MAXPATH - 1");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::string dir = makeWorkDir("scan");
    for (const char* sub : {"/extra1", "/extra2"})
        std::filesystem::create_directories(dir + sub);
    if (startRuntime(writeNotesIni(dir)) != NOERROR)
        fail("the runtime did not start");
    for (const char* path : {"extra1/a.nsf", "extra1/b.nsf", "extra2/c.nsf"})
        if (HY_NSFDbCreate(path, DBCLASS_NOTEFILE, TRUE) != NOERROR)
            fail(std::string("cannot create ") + path);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fields fields(data, size);
    uint8_t mode = fields.byte();
    std::string server = fields.text();
    std::string databasePath = fields.text();
    std::string directory = fields.rest();
    bool useServer = mode & 1;

    std::string path;
    HyLNUtilities::MakeNetworkPath(server, directory, path, useServer);
    checkNetworkPath(path);
    HyLNUtilities::MakeProxyPath(server, databasePath, path, useServer);
    checkNetworkPath(path);

    HyLNInstance instance(directory, server);
    instance.Initialize();

    // Scans open what they name, so only texts that stay in the data directory get there.
    // A server name that is itself a rooted path ("////") made a count scan walk a tree
    // outside the data directory; such names are kept out until that resolution is settled.
    if (!isAscii(server) || !isAscii(databasePath) || !isAscii(directory) || !staysInDataDirectory(server))
        return 0;
    std::string directoryText = directory.c_str();
    switch ((mode >> 1) % 4) {
    case 0:
        if (everyPieceStays(directoryText)) {
            std::set<std::string> databases;
            HyLNUtilities::GetAdditionalDatabases(&databases, &directory, mode & 8, mode & 16);
        }
        break;
    case 1: {
        std::string network = useServer && !server.empty() ? server + "!!" + directoryText : directoryText;
        if (staysInDataDirectory(network)) {
            unsigned long count = 0;
            HyLNUtilities::CountAdditionalDatabases(server, directory, &count, useServer);
        }
        break;
    }
    case 2: {
        size_t separator = databasePath.rfind('\\');
        if (separator == std::string::npos)
            separator = databasePath.rfind('/');
        std::string scanPath = directoryText + (separator == std::string::npos ? "" : databasePath.substr(separator));
        if (staysInDataDirectory(scanPath)) {
            DBNAME table[64];
            table[0].databasePath = databasePath;
            int index = 0;
            HyLNUtilities::AssociateAdditionalDBs(server, &directory, table, &index);
        }
        break;
    }
    case 3:
        if (staysInDataDirectory(directoryText)) {
            std::set<std::string> databases;
            HyLNUtilities::DiscoverDatabases(directory, &databases, collectPath);
        }
        break;
    }
    return 0;
}
