// One Domino database (NSF file) as the host sees it: identity, the handle the
// object owns while the database is open, and what can be asked of it.
#ifndef HYLNTOOL_DATABASE_H
#define HYLNTOOL_DATABASE_H

#include <string>

#include "HYLNTool_Error.h"
#include "HYLNTool_Export.h"
#include "HYLNTool_Instance.h"
#include "HYLNTool_NotesAPI.h"
#include "HYLNTool_NotesUtilities.h"

class HYLN_EXPORT HyLNDatabase {
public:
    // A default or copied object is "not open" (handle 0) until it opens itself.
    HyLNDatabase();
    HyLNDatabase(std::string name, std::string server);
    HyLNDatabase(std::string name, HyLNInstance& instance);
    // Copies the identity only: the copy never shares the other object's handle.
    HyLNDatabase(const HyLNDatabase& other);
    // Closes this object's own handle, then takes the other's identity as a copy does.
    HyLNDatabase& operator=(const HyLNDatabase& other);
    virtual ~HyLNDatabase();

    // Handle and lifecycle.
    HyLNError Create();
    HyLNError Open();
    HyLNError Open(std::string name, bool useNetworkPath);
    HyLNError Close();
    std::string GetName();
    DBHANDLE GetHandle();
    unsigned int GetQuotaUsage();
    void SetQuotaUsage();
    void SetMigrationCriteria(DbMigrateCriteria criteria);

    // Descriptive information of the open database.
    HyLNError GetSize(unsigned int& size);
    HyLNError GetCreationTime(TIMEDATE& creationTime);
    HyLNError GetModifiedTime(TIMEDATE& modifiedTime);
    HyLNError GetReplicaID(std::string& replicaId);
    HyLNError GetReplicaInfo(DBREPLICAINFO* info);
    HyLNError GetCanonicalName(std::string& canonicalName);
    HyLNError GetTitle(std::string& title);
    HyLNError GetPaths(char* canonicalPath, char* expandedPath);
    HyLNError GetMode(unsigned short* mode);
    HyLNError GetQuota(DBQUOTAINFOEXT* quota);
    HyLNError GetSpaceUsage(unsigned int* allocated, unsigned int* free);
    HyLNError GetInfo(char* info);
    HyLNError ReadAcl(unsigned int* acl);
    HyLNError GetOptions(unsigned int* options);
    HyLNError SetInfo(char* info);
    HyLNError SetReplicaInfo(DBREPLICAINFO* info);

    std::string name;
    DBHANDLE handle = NULLHANDLE;
    std::string spareText1;
    std::string userName;
    std::string copiedText;
    std::string canonicalUserName;
    std::string server;
    std::string spareText2;
    bool quotaCached = false;
    DBQUOTAINFOEXT* quotaInfo = new DBQUOTAINFOEXT();
    DWORD reserved1 = 0;
    DHANDLE unreadTable = NULLHANDLE;
    DWORD reserved2 = 0;
    DbMigrateCriteria criteria;
    HyLNInstance instance;

private:
    void copyIdentityFrom(const HyLNDatabase& other);
    void closeHandleBeforeReopen();
    HyLNError openPath(const std::string& path);
};

#endif
