#include "HYLNTool_Instance.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "HYLNTool_HostInterface.h"
#include "HYLNTool_Log.h"
#include "HYLNTool_NotesUtilities.h"

namespace {

const char kInstanceDelimiter = '\x12';
const char kDebugMarkerFile[] = "/tmp/lndb_debug";
const size_t kPathBufferSize = 1024;
const unsigned short kDirectoryValueSize = 256;
// The runtime's argument count includes the terminating null slot.
const int kRuntimeArgumentCount = 3;
const unsigned short kLoadFailedStatus = 1;

// Lets an engineer attach a debugger before the runtime starts.
void waitWhileDebugMarkerExists()
{
    bool announced = false;
    while (access(kDebugMarkerFile, F_OK) == 0) {
        if (!announced) {
            fputs("sleeping: Please remove the file /tmp/lndb_debug to proceed\n", stdout);
            fflush(stdout);
            announced = true;
        }
        sleep(1);
    }
}

char* copyToHeap(const std::string& text)
{
    // At least the runtime's usual buffer size, and never shorter than the text.
    size_t size = text.size() < kPathBufferSize ? kPathBufferSize : text.size() + 1;
    char* buffer = static_cast<char*>(malloc(size));
    if (buffer != nullptr)
        memcpy(buffer, text.c_str(), text.size() + 1);
    return buffer;
}

} // namespace

HyLNInstance::HyLNInstance()
    : detailsResolved(false), notesInitialized(false), hostFlag(false), reserved(0)
{
}

HyLNInstance::HyLNInstance(std::string name, std::string server)
    : instanceName(std::move(name)), serverName(std::move(server)), detailsResolved(false),
      notesInitialized(false), hostFlag(false), reserved(0)
{
}

HyLNInstance::HyLNInstance(std::string tag, std::string name, std::string server, bool flag)
    : instanceName(std::move(name)), serverName(std::move(server)), hostTag(std::move(tag)),
      detailsResolved(false), notesInitialized(false), hostFlag(flag), reserved(0)
{
}

HyLNInstance::~HyLNInstance() {}

HyLNInstance& HyLNInstance::operator=(const HyLNInstance& other)
{
    instanceName = other.instanceName;
    serverName = other.serverName;
    dataDirectory = other.dataDirectory;
    exePath = other.exePath;
    notesIniPath = other.notesIniPath;
    hostTag = other.hostTag;
    detailsResolved = other.detailsResolved;
    notesInitialized = other.notesInitialized;
    hostFlag = other.hostFlag;
    reserved = other.reserved;
    return *this;
}

bool HyLNInstance::Initialize()
{
    if (instanceName.empty()) {
        HYLN_LOG(0, "invalid instance name. failed to initialize domino instance.");
        return false;
    }
    if (!GetDetails()) {
        HYLN_LOG(0, "Failed to initialize Domino Instance.");
        return false;
    }
    return true;
}

bool HyLNInstance::GetDetails()
{
    char name[kPathBufferSize] = {};
    char programDirectory[kPathBufferSize] = {};
    char dataDir[kPathBufferSize] = {};
    char iniPath[kPathBufferSize] = {};
    snprintf(name, sizeof name, "%s", instanceName.c_str());
    const char* delimiter = strchr(name, kInstanceDelimiter);
    if (delimiter == nullptr) {
        HYLN_LOG(0, "No delimiter found in instance name %s.", instanceName.c_str());
        return false;
    }
    snprintf(dataDir, sizeof dataDir, "%s", delimiter + 1);
    int iniLength = snprintf(iniPath, sizeof iniPath, "%s%snotes.ini", dataDir, "/");
    if (iniLength < 0 || static_cast<size_t>(iniLength) >= sizeof iniPath) {
        // A cut ini path would start the runtime on some other file.
        HYLN_LOG(0, "Data directory in instance name %s is too long.", instanceName.c_str());
        return false;
    }
    // A missing notes.ini is left for the runtime to report.
    (void)access(iniPath, F_OK);
    HYLN_LOG(0, "found data directory %s, exe directory %s and notes.ini path %s (%s)", dataDir, programDirectory,
             iniPath, instanceName.c_str());
    SetDataDirectory(dataDir);
    // Nothing here knows the program directory: the host sets it afterwards when needed.
    SetExePath(programDirectory);
    SetNotesIniPath(iniPath);
    detailsResolved = true;
    return true;
}

HyLNError HyLNInstance::InitializeNotesEnv()
{
    HyLNError status;
    waitWhileDebugMarkerExists();
    if (!detailsResolved && !GetDetails()) {
        HYLN_LOG(0, "Cannot get notes directory");
        return status;
    }
    char program[kPathBufferSize] = {};
    char iniArgument[kPathBufferSize] = {};
    snprintf(program, sizeof program, "%s", exePath.c_str());
    snprintf(iniArgument, sizeof iniArgument, "=%s", notesIniPath.c_str());
    char* argv[] = {program, iniArgument, nullptr};
    HyLNUtilities::DumpFileTimeAndVer("libnotes.so", 0);
    HYLN_LOG(0, "Calling NotesInitExtended. exepath %s inipath = %s", argv[0], argv[1]);
    STATUS result = HY_NotesInitExtended(kRuntimeArgumentCount, argv);
    HYLN_LOG(0, "Called NotesInitExtended (%d).", result);
    if (result != NOERROR) {
        status.SetError(result);
        HYLN_LOG(0, "Notes Initialization for domino instance %s, failed with error (%d) %s", instanceName.c_str(),
                 result, status.GetMessage().c_str());
        return status;
    }
    notesInitialized = true;
    char directory[kDirectoryValueSize] = {};
    // The length counts the characters the runtime may write before its terminator.
    HY_OSGetEnvironmentString("Directory", directory, kDirectoryValueSize - 1);
    HYLN_LOG(0, "confirmed data directory %s.", directory);
    SetDataDirectory(directory);
    return status;
}

HyLNError HyLNInstance::InitializeNotesEnvForUnix(std::string installDir, std::string iniArgument)
{
    HyLNError status;
    if (!loadNotesFunctions(installDir)) {
        fputs("dynamic loading failed", stdout);
        status.SetError(kLoadFailedStatus);
        return status;
    }
    // The runtime may keep pointers to its arguments, so they stay allocated for the process.
    static char* argv[kRuntimeArgumentCount] = {};
    argv[0] = copyToHeap(installDir);
    argv[1] = copyToHeap(iniArgument);
    STATUS result = HY_NotesInitExtended(kRuntimeArgumentCount, argv);
    if (result != NOERROR) {
        status.SetError(result);
        HYLN_LOG(0, "Notes Initialization for domino instance %s, failed with error (%d) ", instanceName.c_str(),
                 result);
    }
    return status;
}

HyLNError HyLNInstance::InitializeNotesEnvForProxy() { return HyLNError(); }

void HyLNInstance::TerminateNotes()
{
    HY_NotesTerm();
    notesInitialized = false;
}

unsigned short HyLNInstance::InitializeNotesThread() { return HY_NotesInitThread(); }

void HyLNInstance::TerminateNotesThread() { HY_NotesTermThread(); }

std::string HyLNInstance::GetServerName() { return serverName; }

std::string HyLNInstance::GetDataDirectory() { return dataDirectory; }

void HyLNInstance::SetDataDirectory(std::string directory) { dataDirectory = std::move(directory); }

void HyLNInstance::SetExePath(std::string path) { exePath = std::move(path); }

void HyLNInstance::SetNotesIniPath(std::string path) { notesIniPath = std::move(path); }
