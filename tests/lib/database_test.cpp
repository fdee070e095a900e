// HyLNDatabase: handle lifecycle and the database information operations.
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "HYLNTool_Database.h"
#include "support/domino_fixture.h"
#include "support/test_support.h"

using namespace hyln_test;

namespace {

const char* const kServer = "CN=HySrv01/O=HyOrg";
const STATUS kFault = 0x0222;

std::string format3(const char* format, const std::string& name, int code, const std::string& message)
{
    char text[1024];
    std::snprintf(text, sizeof text, format, name.c_str(), code, message.c_str());
    return text;
}

// The one line logged since the last capture, checked byte for byte.
void expectOnlyLine(const std::string& function, int level, const std::string& text)
{
    ASSERT_EQ(capturedLog().size(), 1u);
    const LogLine& line = capturedLog().front();
    EXPECT_EQ(line.function, function);
    EXPECT_EQ(line.level, level);
    EXPECT_EQ(line.file, "HYLNTools/HYLNTool_Interface/HYLNTool_Database.cpp");
    EXPECT_EQ(line.text, text);
}

class Database : public RuntimeTest {
protected:
    HyLNDatabase db{"info.nsf", kServer};
};

// The same database, created and open; the log and call counts start empty.
class OpenDatabase : public Database {
protected:
    void SetUp() override
    {
        Database::SetUp();
        ASSERT_FALSE(db.Create().IsErrorSet());
        ASSERT_FALSE(db.Open().IsErrorSet());
        captureLog();
        sim().traceClear();
    }
};

TEST_F(Database, EmptyOrMissingNamesAreRefused)
{
    HyLNDatabase unnamed("", kServer);
    for (HyLNError error : {unnamed.Open(), unnamed.Open("", true)})
        EXPECT_EQ(error.GetMessage(), "Database name empty\\invalid");
    EXPECT_EQ(sim().callCount("NSFDbOpen"), 0u);
    EXPECT_EQ(logTexts(), std::vector<std::string>(2, "Error: invalid database name."));

    captureLog();
    HyLNError error = db.Open("nosuch/missing.nsf", false);
    ASSERT_TRUE(error.IsErrorSet());
    expectOnlyLine("Open", 0, format3("Error: Failed to open db %s, %d - %s", "nosuch/missing.nsf",
                                      error.GetErrorCode(), error.GetMessage()));
}

TEST_F(Database, NetworkPathFailureStopsBeforeOpening)
{
    sim().setFault("OSPathNetConstruct", 0x0103, 0, 0);
    EXPECT_EQ(db.Open("info.nsf", true).GetErrorCode(), 0x0103);
    EXPECT_EQ(db.GetHandle(), 0u);
    EXPECT_EQ(sim().callCount("NSFDbOpen"), 0u);
    EXPECT_EQ(capturedLog().back().text,
              std::string("Failed to fetch netwrok path of database info.nsf, from server ") + kServer);
}

TEST_F(OpenDatabase, ReopeningReleasesTheFirstHandle)
{
    ASSERT_FALSE(db.Close().IsErrorSet());
    EXPECT_EQ(db.GetHandle(), 0u);
    ASSERT_FALSE(db.Open().IsErrorSet());
    ASSERT_FALSE(db.Open().IsErrorSet());
    EXPECT_EQ(sim().callCount("NSFDbClose"), 2u);
    unsigned short mode = 0;
    EXPECT_FALSE(db.GetMode(&mode).IsErrorSet());
    EXPECT_EQ(mode, 1); // DB_LOADED
}

TEST_F(OpenDatabase, NetworkOpenTakesTheLocalPathOrFallsBackToTheBareName)
{
    HyLNInstance instance("label\x12" + dataDir, kServer);
    HyLNDatabase viaInstance("ignored.nsf", instance);
    EXPECT_EQ(viaInstance.server, kServer);
    char canonical[MAXPATH] = {}, expanded[MAXPATH] = {};
    ASSERT_FALSE(viaInstance.Open("info.nsf", true).IsErrorSet());
    ASSERT_FALSE(viaInstance.GetPaths(canonical, expanded).IsErrorSet());
    EXPECT_STREQ(canonical, "info.nsf");

    captureLog();
    sim().setFault("OSTranslate", 0, 0, 0);
    ASSERT_FALSE(viaInstance.Open("info.nsf", true).IsErrorSet());
    expectOnlyLine("Open", 0, "NotesTranslate failed on db name: info.nsf");
    EXPECT_EQ(viaInstance.GetName(), "ignored.nsf"); // the opened name is not kept
}

TEST_F(OpenDatabase, FailedCloseKeepsTheHandleAndCopiesOwnNone)
{
    DBHANDLE before = db.GetHandle();
    sim().setFault("NSFDbClose", kFault, 0, 0);
    EXPECT_EQ(db.Close().GetErrorCode(), kFault);
    EXPECT_EQ(db.GetHandle(), before);
    sim().clearFaults();

    db.userName = "Jane Doe";
    db.SetQuotaUsage();
    HyLNDatabase copy(db);
    EXPECT_EQ(copy.GetHandle(), 0u);
    EXPECT_EQ(copy.GetQuotaUsage(), 0u);
    EXPECT_EQ(copy.userName, "Jane Doe");
    ASSERT_FALSE(copy.Open().IsErrorSet());
    HyLNDatabase target;
    target = copy;
    EXPECT_EQ(target.GetHandle(), 0u);
    EXPECT_EQ(target.GetName(), "info.nsf");
    copy = target; // an open object assigned over releases its own handle
    EXPECT_EQ(sim().callCount("NSFDbClose"), 2u);
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(OpenDatabase, AThrowingCloseInTheDestructorDoesNotEndTheHost)
{
    DBHANDLE stranded = NULLHANDLE;
    {
        HyLNDatabase other("info.nsf", "");
        ASSERT_FALSE(other.Open().IsErrorSet());
        stranded = other.GetHandle();
        sim().setFault("NSFDbClose", 0, 1, 1 /* throw */);
    }
    sim().clearFaults();
    EXPECT_EQ(HY_NSFDbClose(stranded), NOERROR) << "the handle the throwing close kept";
}

TEST_F(OpenDatabase, SelfAssignmentKeepsTheOpenHandle)
{
    DBHANDLE before = db.GetHandle();
    db.SetQuotaUsage();
    HyLNDatabase& same = db;
    db = same;
    EXPECT_EQ(db.GetHandle(), before);
    EXPECT_EQ(db.GetQuotaUsage(), 1u);
    EXPECT_EQ(sim().callCount("NSFDbClose"), 0u);
    std::string title;
    EXPECT_FALSE(db.GetTitle(title).IsErrorSet()) << "the handle still works";
}

TEST_F(OpenDatabase, MigrationCriteriaAreCopiedIn)
{
    DbMigrateCriteria wanted;
    wanted.MessageBodySize = 4096;
    wanted.AttachmentNumbers = 2;
    ATTACHMENT attachment;
    attachment.Name = "report.pdf";
    attachment.Size = 1234;
    wanted.Attachments.push_back(attachment);
    db.SetMigrationCriteria(wanted);
    wanted.Attachments.clear();
    EXPECT_EQ(db.criteria.MessageBodySize, 4096);
    EXPECT_EQ(db.criteria.AttachmentNumbers, 2);
    ASSERT_EQ(db.criteria.Attachments.size(), 1u);
    EXPECT_EQ(db.criteria.Attachments[0].Name, "report.pdf");
    EXPECT_EQ(db.criteria.Attachments[0].Size, 1234u);
}

TEST_F(OpenDatabase, SizeAndCreationTimeAreTheRuntimes)
{
    DWORD allocated = 0, unused = 0;
    ASSERT_EQ(HY_NSFDbSpaceUsage(db.GetHandle(), &allocated, &unused), NOERROR);
    unsigned int size = 0;
    ASSERT_FALSE(db.GetSize(size).IsErrorSet());
    EXPECT_EQ(size, allocated);
    EXPECT_GT(size, 0u);

    DBID id{};
    ASSERT_EQ(HY_NSFDbIDGet(db.GetHandle(), &id), NOERROR);
    TIMEDATE created{};
    ASSERT_FALSE(db.GetCreationTime(created).IsErrorSet());
    EXPECT_EQ(std::memcmp(&created, &id, sizeof id), 0);
    EXPECT_NE(created.Innards[1], 0u);

    // A failure leaves the output alone and is not logged.
    sim().setFault("NSFDbIDGet", kFault, 0, 0);
    TIMEDATE kept = {{5, 6}};
    HyLNError error = db.GetCreationTime(kept);
    EXPECT_EQ(error.GetErrorCode(), kFault);
    EXPECT_EQ(error.GetMessage(), "Note item not found");
    EXPECT_EQ(kept.Innards[0], 5u);
    EXPECT_EQ(kept.Innards[1], 6u);
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(OpenDatabase, TitleReplicaAndModifiedTime)
{
    char info[NSF_INFO_SIZE] = "Quarterly Reports\nFinance", readBack[NSF_INFO_SIZE] = {};
    ASSERT_FALSE(db.SetInfo(info).IsErrorSet());
    std::string title, replicaId;
    ASSERT_FALSE(db.GetTitle(title).IsErrorSet());
    EXPECT_EQ(title, "Quarterly Reports");
    ASSERT_FALSE(db.GetInfo(readBack).IsErrorSet());
    EXPECT_STREQ(readBack, info);

    DBREPLICAINFO replica{};
    ASSERT_FALSE(db.GetReplicaInfo(&replica).IsErrorSet());
    replica.ID = TIMEDATE{{1, 0xAB}};
    ASSERT_FALSE(db.SetReplicaInfo(&replica).IsErrorSet());
    ASSERT_FALSE(db.GetReplicaID(replicaId).IsErrorSet());
    EXPECT_EQ(replicaId, "000000AB:00000001");

    TIMEDATE data{}, nonData{}, modified{};
    ASSERT_EQ(HY_NSFDbModifiedTime(db.GetHandle(), &data, &nonData), NOERROR);
    ASSERT_FALSE(db.GetModifiedTime(modified).IsErrorSet());
    EXPECT_EQ(std::memcmp(&modified, &data, sizeof data), 0);
}

TEST_F(OpenDatabase, QuotaIsReadOnceAndThenServedFromTheCache)
{
    DBQUOTAINFOEXT first{}, second{};
    ASSERT_FALSE(db.GetQuota(&first).IsErrorSet());
    EXPECT_EQ(db.GetQuotaUsage(), 1u);
    sim().setFault("NSFDbQuotaGethDB", kFault, 0, 0); // the runtime is not asked again
    ASSERT_FALSE(db.GetQuota(&second).IsErrorSet());
    EXPECT_EQ(std::memcmp(&first, &second, sizeof first), 0);
    EXPECT_EQ(sim().callCount("NSFDbQuotaGethDB"), 1u);
}

struct LoggedFailure {
    const char* entry;
    const char* function;
    int level;
    const char* format;
    std::function<HyLNError(HyLNDatabase&)> call;
};

TEST_F(OpenDatabase, RuntimeFailuresAreLoggedOnceWithNameCodeAndText)
{
    std::string text;
    char buffer[NSF_INFO_SIZE] = {};
    DBREPLICAINFO replica{};
    unsigned short mode = 0;
    unsigned int words[2] = {};
    DBQUOTAINFOEXT quota{};
    const LoggedFailure cases[] = {
        {"NSFDbReplicaInfoGet", "GetReplicaID", -1, "Error: Failed to fetch replicaId information for DB %s, error (%d) %s",
         [&](HyLNDatabase& d) { return d.GetReplicaID(text); }},
        {"NSFDbReplicaInfoGet", "GetReplicaInfo", -1, "Error: Failed to fetch replica information for DB %s, error (%d) %s",
         [&](HyLNDatabase& d) { return d.GetReplicaInfo(&replica); }},
        {"NSFDbInfoGet", "GetTitle", 0,
         "Error: unable to get database information for Db: [%s]. NSFDbInfoGet(...) returned: [%d]. Resulting error string: [%s].",
         [&](HyLNDatabase& d) { return d.GetTitle(text); }},
        {"NSFDbPathGet", "GetPaths", 0, "Error: Failed to get database paths for %s. %d - %s",
         [&](HyLNDatabase& d) { return d.GetPaths(buffer, buffer); }},
        {"NSFDbModeGet", "GetMode", 0, "Error: Failed to get database mode for %s, %d - %s",
         [&](HyLNDatabase& d) { return d.GetMode(&mode); }},
        {"NSFDbQuotaGethDB", "GetQuota", 0, "Unalbe to determine quota for database %s. %d - %s",
         [&](HyLNDatabase& d) { return d.GetQuota(&quota); }},
        {"NSFDbSpaceUsage", "GetSpaceUsage", 0, "Unable to determine space usage for database %s. %d - %s",
         [&](HyLNDatabase& d) { return d.GetSpaceUsage(&words[0], &words[1]); }},
        {"NSFDbInfoGet", "GetInfo", 0, "Failed to get database information for %s. NSFDbInfoGet(...) returned %d - %s",
         [&](HyLNDatabase& d) { return d.GetInfo(buffer); }},
        {"NSFDbReadACL", "ReadAcl", 0, "Failed to read ACL information for database %s. NSFDbReadACL(...) returned %d - %s",
         [&](HyLNDatabase& d) { return d.ReadAcl(&words[0]); }},
    };
    for (const LoggedFailure& c : cases) {
        SCOPED_TRACE(c.function);
        captureLog();
        sim().setFault(c.entry, kFault, 0, 0);
        HyLNError error = c.call(db);
        sim().clearFaults();
        EXPECT_EQ(error.GetErrorCode(), kFault);
        EXPECT_FALSE(error.GetMessage().empty());
        expectOnlyLine(c.function, c.level, format3(c.format, "info.nsf", kFault, error.GetMessage()));
    }
    EXPECT_TRUE(text.empty()); // outputs stay untouched on failure
    EXPECT_EQ(db.GetQuotaUsage(), 0u);
}

TEST_F(OpenDatabase, QuietFailuresAndTheUnnamedTitleLine)
{
    sim().setFault("NSFDbSpaceUsage", kFault, 0, 0);
    sim().setFault("NSFDbGetOptions", kFault, 0, 0);
    unsigned int size = 7, options = 0;
    EXPECT_EQ(db.GetSize(size).GetErrorCode(), kFault);
    EXPECT_EQ(size, 7u);
    HyLNError codeOnly = db.GetOptions(&options);
    EXPECT_EQ(codeOnly.GetErrorCode(), kFault);
    EXPECT_FALSE(codeOnly.IsErrorSet());
    EXPECT_TRUE(capturedLog().empty());

    HyLNDatabase unnamed("", kServer);
    ASSERT_FALSE(unnamed.Open("info.nsf", false).IsErrorSet());
    sim().setFault("NSFDbInfoGet", kFault, 0, 0);
    std::string title;
    HyLNError error = unnamed.GetTitle(title);
    ASSERT_FALSE(capturedLog().empty());
    EXPECT_EQ(capturedLog().back().text, format3("Error: unable to get database information for Db: [%s]. "
                                                 "NSFDbInfoGet(...) returned: [%d]. Resulting error string: [%s].",
                                                 "(null)", kFault, error.GetMessage()));
}

TEST_F(Database, ClosedDatabaseIsReportedWithoutAskingTheRuntime)
{
    sim().traceEnable(1);
    std::string text = "kept";
    char buffer[NSF_INFO_SIZE] = {};
    DBREPLICAINFO replica{};
    unsigned short mode = 0;
    unsigned int words[2] = {};
    DBQUOTAINFOEXT quota{};
    for (HyLNError error : {db.GetReplicaID(text), db.GetReplicaInfo(&replica), db.GetTitle(text),
                            db.GetPaths(buffer, buffer), db.GetMode(&mode), db.GetQuota(&quota),
                            db.GetSpaceUsage(&words[0], &words[1]), db.GetInfo(buffer)}) {
        EXPECT_EQ(error.GetErrorCode(), 4996);
        EXPECT_TRUE(error.IsErrorSet());
    }
    for (HyLNError error : {db.GetOptions(&words[0]), db.SetInfo(buffer), db.SetReplicaInfo(&replica)})
        EXPECT_EQ(error.GetMessage(), "Invalid database handle");
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(sim().callCount("NSFDbInfoGet"), 0u);
    for (const std::string& call : simTrace()) // only the text of 4996 is looked up
        EXPECT_EQ(call.rfind("OSLoadString(", 0), 0u) << call;
    EXPECT_TRUE(capturedLog().empty());
    // GetSize is one of those that hand handle 0 on and report the runtime's answer.
    EXPECT_TRUE(db.GetSize(words[0]).IsErrorSet());
    EXPECT_EQ(sim().callCount("NSFDbSpaceUsage"), 1u);
}

TEST_F(OpenDatabase, CanonicalNameNeedsAnOwnerAndReportsLookupFailures)
{
    std::string canonical = "kept";
    EXPECT_FALSE(db.GetCanonicalName(canonical).IsErrorSet());
    expectOnlyLine("GetCanonicalName", 0, "Error: invalid database title");

    captureLog();
    db.userName = "Jane Doe";
    sim().setFault("MailLookupAddress", 0x1105, 0, 0);
    HyLNError error = db.GetCanonicalName(canonical);
    EXPECT_EQ(error.GetErrorCode(), 0x1105);
    EXPECT_EQ(canonical, "kept");
    expectOnlyLine("GetCanonicalName", -1, format3("Failed to fetch Canonical name for database %s. error (%d) %s",
                                                   "info.nsf", 0x1105, error.GetMessage()));
}

// A runtime whose directory knows one person, in a mail domain.
class CanonicalName : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        std::string dataDir = makeTempDir("canonical");
        writeNotesIni(dataDir, kServer, "Domain=HyOrg\n");
        startRuntime(dataDir);
        addPeople({{{"CN=Jane Doe/O=HyOrg", "Jane Doe"}, "mail/jdoe.nsf"}});
    }
};

TEST_F(CanonicalName, IsTheOwnersAddressWithoutItsDomain)
{
    HyLNDatabase mailFile("mail/jdoe.nsf", kServer);
    mailFile.userName = "Jane Doe";
    std::string canonical;
    ASSERT_FALSE(mailFile.GetCanonicalName(canonical).IsErrorSet());
    EXPECT_EQ(canonical, "CN=Jane Doe/O=HyOrg");
}

} // namespace
