// One Domino installation, and the start and end of the Notes runtime.
#ifndef HYLNTOOL_INSTANCE_H
#define HYLNTOOL_INSTANCE_H

#include <string>

#include "HYLNTool_Error.h"
#include "HYLNTool_Export.h"

class HYLN_EXPORT HyLNInstance {
public:
    HyLNInstance();
    HyLNInstance(std::string name, std::string server);
    HyLNInstance(std::string tag, std::string name, std::string server, bool flag);
    HyLNInstance(const HyLNInstance& other) = default;
    ~HyLNInstance();
    HyLNInstance& operator=(const HyLNInstance& other);

    bool Initialize();
    // Data directory and notes.ini path from the instance name; clears the program path.
    bool GetDetails();
    HyLNError InitializeNotesEnv();
    // iniArgument is the runtime's form: "=" followed by the notes.ini path.
    HyLNError InitializeNotesEnvForUnix(std::string installDir, std::string iniArgument);
    HyLNError InitializeNotesEnvForProxy();
    void TerminateNotes();
    unsigned short InitializeNotesThread();
    void TerminateNotesThread();

    std::string GetServerName();
    std::string GetDataDirectory();
    void SetDataDirectory(std::string directory);
    void SetExePath(std::string path);
    void SetNotesIniPath(std::string path);

private:
    std::string instanceName; // free label, byte 0x12, data directory
    std::string serverName;
    std::string dataDirectory;
    std::string exePath;
    std::string notesIniPath;
    std::string hostTag; // kept for the host only
    bool detailsResolved;
    bool notesInitialized;
    bool hostFlag; // kept for the host only
    unsigned int reserved;
};

#endif
