// HyLNDatabase: database objects, runtime memory blocks, the ACL and replica location.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include "HYLNTool_Database.h"
#include "support/domino_fixture.h"
#include "support/test_support.h"

using namespace hyln_test;

namespace {

const char* const kServer = "CN=HySrv01/O=HyOrg";
const char* const kSourceFile = "HYLNTools/HYLNTool_Interface/HYLNTool_Database.cpp";
const STATUS kBadArgument = 0x3F05; // the runtime's answer to a malformed argument

// A default-shaped ACL image of this runtime with one entry.
std::string aclImage(unsigned short level, const std::string& name)
{
    std::string image("HACL\x01\x00\x01\x00", 8);
    unsigned short fields[3] = {level, 0, static_cast<unsigned short>(name.size())};
    image.append(reinterpret_cast<const char*>(fields), sizeof fields);
    return image + name;
}

class Objects : public RuntimeTest {
protected:
    void SetUp() override
    {
        RuntimeTest::SetUp();
        ASSERT_FALSE(db.Create().IsErrorSet());
        ASSERT_FALSE(db.Open().IsErrorSet());
        captureLog();
        sim().traceClear();
    }
    // A runtime memory block holding `bytes`, through the object's own operations.
    unsigned int blockWith(const std::string& bytes)
    {
        unsigned int block = 0;
        EXPECT_FALSE(db.MemAllocObject(0, static_cast<unsigned int>(bytes.size()), &block).GetErrorCode());
        std::memcpy(db.LockObject(block), bytes.data(), bytes.size());
        EXPECT_TRUE(db.UnlockObject(block));
        return block;
    }
    std::string blockText(unsigned int block)
    {
        unsigned int size = 0;
        EXPECT_FALSE(db.GetObjectSize(block, &size).IsErrorSet());
        std::string text(static_cast<const char*>(db.LockObject(block)), size);
        db.UnlockObject(block);
        EXPECT_EQ(db.MemFreeObject(block), 0);
        return text;
    }
    std::string storedAcl()
    {
        unsigned int acl = 0;
        EXPECT_FALSE(db.ReadAcl(&acl).IsErrorSet());
        return blockText(acl);
    }
    HyLNDatabase db{"objects.nsf", kServer};
    HyLNDatabase closed{"objects.nsf", kServer};
};

TEST_F(Objects, WrittenObjectReadsBackAndAFreedOneFailsWithItsLine)
{
    unsigned int object = 0;
    ASSERT_EQ(db.AllocObject(12, NOTE_CLASS_DOCUMENT, 0, &object).GetErrorCode(), 0);
    unsigned int source = blockWith("payload");
    ASSERT_EQ(db.WriteObject(object, source, 3, 7).GetErrorCode(), 0);
    EXPECT_EQ(db.MemFreeObject(source), 0);
    unsigned int read = 0;
    ASSERT_FALSE(db.ReadObject(object, 3, 7, &read).IsErrorSet());
    EXPECT_EQ(blockText(read), "payload");
    ASSERT_FALSE(db.ReadObject(object, 0, MAXDWORD, &read).IsErrorSet());
    EXPECT_EQ(blockText(read), std::string("\0\0\0payload\0\0", 12));
    EXPECT_TRUE(capturedLog().empty()) << "the object operations log only failed reads";

    ASSERT_EQ(db.FreeObject(object).GetErrorCode(), 0);
    HyLNError error = db.ReadObject(object, 0, 4, &read);
    ASSERT_TRUE(error.IsErrorSet());
    EXPECT_EQ(error.GetErrorCode(), ERR_NOT_FOUND);
    ASSERT_EQ(capturedLog().size(), 1u);
    const LogLine& line = capturedLog().front();
    EXPECT_EQ(line.function, "ReadObject");
    EXPECT_EQ(line.level, 0);
    EXPECT_EQ(line.file, kSourceFile);
    EXPECT_EQ(line.text, formatted("Error: Failed to read object. ObjectID - %u, offset - 0, size - 4, Db - "
                                   "objects.nsf. NSFDbReadObject(...) returned 1028 - Entry not found in index",
                                   object));
}

TEST_F(Objects, RuntimeFailuresKeepTheCodeOnlyAndAClosedDatabaseIsRefused)
{
    HyLNError freed = db.FreeObject(4000);
    EXPECT_EQ(freed.GetErrorCode(), ERR_NOT_FOUND);
    EXPECT_FALSE(freed.IsErrorSet());
    sim().setFault("NSFDbAllocObject", ERR_MEMORY, 0, 0);
    unsigned int object = 0;
    EXPECT_EQ(db.AllocObject(8, NOTE_CLASS_DOCUMENT, 0, &object).GetErrorCode(), ERR_MEMORY);

    for (HyLNError error : {closed.AllocObject(8, 1, 0, &object), closed.WriteObject(4, 1, 0, 1),
                            closed.FreeObject(4), closed.StoreACL(1, 0, 0, const_cast<char*>("x"))})
        EXPECT_EQ(error.GetMessage(), "Invalid database handle");
    unsigned int block = 0;
    unsigned int size = 0;
    EXPECT_EQ(closed.ReadObject(4, 0, 1, &block).GetErrorCode(), ERR_NULL_DBHANDLE);
    EXPECT_EQ(closed.GetObjectSize(block, &size).GetErrorCode(), ERR_NULL_DBHANDLE);
    unsigned int exporter = 0;
    EXPECT_EQ(closed.ExportACL(exporter, nullptr).GetErrorCode(), ERR_NULL_DBHANDLE);
    EXPECT_EQ(sim().callCount("NSFDbAllocObject"), 1u) << "nothing reaches the runtime for a closed database";
    EXPECT_EQ(sim().callCount("OSMemAlloc"), 0u);
}

TEST_F(Objects, ObjectSizeIgnoresTheRuntimeAndTheEmptyOperationsDoNothing)
{
    unsigned int block = blockWith("abc");
    sim().setFault("OSMemGetSize", ERR_MEMORY, 0, 0);
    unsigned int size = 99;
    EXPECT_FALSE(db.GetObjectSize(block, &size).IsErrorSet());
    sim().clearFaults();
    EXPECT_EQ(blockText(block), "abc");

    sim().traceEnable(1);
    sim().traceClear();
    EXPECT_FALSE(db.ExportACL().IsErrorSet());
    EXPECT_FALSE(db.ImportAllDataDocuments().IsErrorSet());
    EXPECT_FALSE(db.CheckDXLErrorLog(12345).IsErrorSet());
    EXPECT_FALSE(closed.ExportACL().IsErrorSet());
    EXPECT_EQ(sim().traceCount(), 0u) << "no runtime call at all";
}

TEST_F(Objects, StoredAclIsReadBackAndExported)
{
    std::string image = aclImage(6, "CN=Restorer/O=HyOrg");
    HyLNError error = db.StoreACL(static_cast<unsigned int>(image.size()), 0, 1, image.data());
    ASSERT_FALSE(error.IsErrorSet()) << error.GetMessage();
    EXPECT_EQ(error.GetErrorCode(), 0);
    EXPECT_EQ(logTexts(), std::vector<std::string>{"Setting ACL..."});
    EXPECT_TRUE(logged("StoreACL", 2, "Setting ACL..."));
    EXPECT_EQ(storedAcl(), image);

    unsigned int exporter = 0;
    std::map<DXL_EXPORT_PROPERTY, void*> properties;
    ASSERT_FALSE(HyLNUtilities::CreateDXLExporter(exporter, properties).IsErrorSet());
    unsigned int capacity = 16;
    unsigned char* buffer = static_cast<unsigned char*>(std::calloc(capacity, 1));
    NoteExportRecord record{nullptr, &buffer, 0, &capacity, 0, false, true};
    ASSERT_FALSE(db.ExportACL(exporter, &record).IsErrorSet());
    std::string dxl(reinterpret_cast<char*>(buffer), record.position);
    std::free(buffer);
    EXPECT_NE(dxl.find("<aclentry name=\"CN=Restorer/O=HyOrg\" level=\"manager\"/>"), std::string::npos) << dxl;

    sim().setFault("DXLExportACL", 0x3F0C, 0, 0);
    EXPECT_EQ(db.ExportACL(exporter, &record).GetErrorCode(), 0x3F0C);
    HyLNUtilities::DeleteDXLExporter(exporter);
}

TEST_F(Objects, StoreAclFailuresFreeTheBlockAndReportAsStated)
{
    std::string before = storedAcl();
    unsigned long freesBefore = sim().callCount("OSMemFree");
    std::string broken = "HACL";
    HyLNError refused = db.StoreACL(static_cast<unsigned int>(broken.size()), 0, 0, broken.data());
    EXPECT_EQ(refused.GetErrorCode(), kBadArgument);
    EXPECT_FALSE(refused.IsErrorSet()) << "the runtime's refusal is kept as a code";
    std::string text = HyLNUtilities::GetNotesErrorMsg(kBadArgument);
    EXPECT_TRUE(logged("StoreACL", 2, "Cannot store ACL information - " + text));
    EXPECT_EQ(sim().callCount("OSMemAlloc"), 1u);
    EXPECT_EQ(sim().callCount("OSMemFree"), freesBefore + 1) << "the block is freed after a refusal too";
    EXPECT_EQ(storedAcl(), before);

    captureLog();
    sim().traceClear();
    sim().setFault("OSMemAlloc", ERR_MEMORY, 0, 0);
    std::string image = aclImage(6, "CN=Restorer/O=HyOrg");
    HyLNError failed = db.StoreACL(static_cast<unsigned int>(image.size()), 0, 0, image.data());
    EXPECT_TRUE(failed.IsErrorSet());
    EXPECT_EQ(failed.GetErrorCode(), 0);
    EXPECT_EQ(failed.GetMessage(), "Insufficient memory.");
    ASSERT_EQ(capturedLog().size(), 1u);
    EXPECT_TRUE(logged("StoreACL", 0, "OSMemAlloc() failed, Insufficient memory."));
    EXPECT_EQ(sim().callCount("NSFDbStoreACL"), 0u);
}

class ReplicaLocation : public RuntimeTest {
protected:
    void SetUp() override
    {
        RuntimeTest::SetUp();
        std::filesystem::create_directories(dataDir + "/archive");
        createDatabase("archive/located.nsf", "Located", 0x8525721B, 0x0052A1C3);
        captureLog();
    }
    HyLNError locate(const std::string& replicaID, std::string& path)
    {
        return locateUnder(dataDir, replicaID, path);
    }
    HyLNError locateUnder(const std::string& directory, const std::string& replicaID, std::string& path)
    {
        HyLNInstance instance("label\x12" + directory, kServer);
        instance.SetDataDirectory(directory);
        HyLNDatabase db("unopened.nsf", instance);
        return db.LocateByReplicaID(replicaID, path);
    }
};

TEST_F(ReplicaLocation, FindsTheDatabaseBelowTheDataDirectoryReadingEightDigitsAWord)
{
    for (const char* text : {"8525721B:0052A1C3", "8525721bFFFF:0052a1c3EEEE"}) {
        captureLog();
        std::string path;
        HyLNError error = locate(text, path);
        ASSERT_FALSE(error.IsErrorSet()) << text << ": " << error.GetMessage();
        EXPECT_EQ(path, "archive/located.nsf");
        std::string high(text, 8), low(std::strchr(text, ':') + 1, 8);
        EXPECT_EQ(logTexts(), (std::vector<std::string>{"str time = " + high + ", str date = " + low,
                                                        "time = 2233823771, date = 5415363"}));
    }
    EXPECT_EQ(sim().callCount("NSFDbClose"), sim().callCount("NSFDbOpen")) << "the directory is closed";
}

TEST_F(ReplicaLocation, MissingReplicaAndTextWithoutAColonFail)
{
    std::string path = "untouched";
    HyLNError missing = locate("00000001:00000002", path);
    ASSERT_TRUE(missing.IsErrorSet());
    EXPECT_EQ(missing.GetErrorCode(), ERR_NOT_FOUND);
    EXPECT_EQ(path, "untouched");
    EXPECT_EQ(capturedLog().back().text,
              "Skipping database: unable to locate db using ReplicaId [00000001:00000002]. "
              "NSFDbLocateByReplicaID(...) returned: [1028]. Resulting error string: [Entry not found in index].");
    EXPECT_EQ(capturedLog().back().function, "LocateByReplicaID");

    captureLog();
    sim().traceEnable(1);
    sim().traceClear();
    HyLNError noColon = locate("8525721B0052A1C3", path);
    ASSERT_TRUE(noColon.IsErrorSet());
    EXPECT_EQ(noColon.GetErrorCode(), 0xFFFF);
    EXPECT_EQ(noColon.GetMessage(), "Invalid replica ID [8525721B0052A1C3]: no colon between its two words");
    EXPECT_EQ(logTexts(), std::vector<std::string>{noColon.GetMessage()});
    EXPECT_EQ(sim().traceCount(), 0u) << "no runtime call at all";
}

TEST_F(ReplicaLocation, UnopenableDataDirectoryAndFailedTranslationAreLogged)
{
    sim().setFault("OSTranslate", 0, 0, 0);
    std::string path;
    ASSERT_FALSE(locate("8525721B:0052A1C3", path).IsErrorSet()) << "the untranslated directory is opened";
    EXPECT_TRUE(logged("LocateByReplicaID", 0, "OSTranslate failed on db name: " + dataDir));
    sim().clearFaults();

    captureLog();
    sim().traceClear();
    sim().setFault("NSFDbOpen", ERR_NOEXIST, 0, 0);
    HyLNError error = locate("8525721B:0052A1C3", path);
    EXPECT_EQ(error.GetErrorCode(), ERR_NOEXIST);
    EXPECT_EQ(capturedLog().back().text, "Unable to open data directory : [" + dataDir +
                                             "]. NSFDbOpen(...) returned: [0]. Resulting error string: "
                                             "[File does not exist].");
    EXPECT_EQ(sim().callCount("NSFDbLocateByReplicaID"), 0u);
    sim().clearFaults();

    // Without a data directory nothing is opened and the runtime is asked with no handle.
    captureLog();
    EXPECT_EQ(locateUnder("", "8525721B:0052A1C3", path).GetErrorCode(), ERR_NULL_DBHANDLE);
    EXPECT_TRUE(logged("LocateByReplicaID", 0, "OSTranslate failed on db name: "));
}

} // namespace
