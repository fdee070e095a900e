// Storing an ACL image, and finding a database by replica ID under a directory.
#include <filesystem>

#include "sim/dxl/dxl_support.h"
#include "sim/support/storage_fixture.h"

using storage_test::StorageTest;

namespace {

// An ACL image: the header, then per entry its level, flags, name length and name.
std::vector<char> aclImage(const std::vector<std::pair<WORD, std::string>>& entries)
{
    std::vector<char> image;
    auto put = [&image](const void* data, size_t size) {
        image.insert(image.end(), static_cast<const char*>(data), static_cast<const char*>(data) + size);
    };
    const DWORD magic = 0x4C434148;
    const WORD version = 1;
    const WORD count = static_cast<WORD>(entries.size());
    put(&magic, 4);
    put(&version, 2);
    put(&count, 2);
    for (const auto& [level, name] : entries) {
        const WORD flags = 0;
        const WORD length = static_cast<WORD>(name.size());
        put(&level, 2);
        put(&flags, 2);
        put(&length, 2);
        put(name.data(), name.size());
    }
    return image;
}

DHANDLE memoryWith(const std::vector<char>& bytes)
{
    DHANDLE handle = NULLHANDLE;
    EXPECT_EQ(OSMemAlloc(0, static_cast<DWORD>(bytes.size()), &handle), NOERROR);
    std::memcpy(OSLockObject(handle), bytes.data(), bytes.size());
    OSUnlockObject(handle);
    return handle;
}

std::vector<char> storedAcl(DBHANDLE db)
{
    DHANDLE acl = NULLHANDLE;
    EXPECT_EQ(NSFDbReadACL(db, &acl), NOERROR);
    DWORD size = 0;
    OSMemGetSize(acl, &size);
    const char* bytes = static_cast<const char*>(OSLockObject(acl));
    std::vector<char> image(bytes, bytes + size);
    OSUnlockObject(acl);
    OSMemFree(acl);
    return image;
}

} // namespace

class AclStore : public StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        db = createAndOpen("acl.nsf");
    }
    void TearDown() override
    {
        NSFDbClose(db);
        StorageTest::TearDown();
    }
    STATUS store(const std::vector<char>& image, WORD method = 0, DWORD objectId = 0)
    {
        DHANDLE block = memoryWith(image);
        STATUS status = NSFDbStoreACL(db, block, objectId, method);
        OSMemFree(block);
        return status;
    }
    DBHANDLE db = NULLHANDLE;
};

TEST_F(AclStore, StoredImageIsReadBackAndExportedAfterReopening)
{
    std::vector<char> image = aclImage({{6, "CN=Admin/O=HyOrg"}, {2, "-Default-"}, {0, "Anonymous"}});
    ASSERT_EQ(store(image, 1), NOERROR);
    NSFDbClose(db);
    db = open("acl.nsf");
    EXPECT_EQ(storedAcl(db), image);

    DXLEXPORTHANDLE exporter = NULLHANDLE;
    ASSERT_EQ(DXLCreateExporter(&exporter), NOERROR);
    std::string text;
    ASSERT_EQ(DXLExportACL(exporter, dxl_test::appendChunk, db, &text), NOERROR);
    DXLDeleteExporter(exporter);
    EXPECT_NE(text.find("<aclentry name=\"CN=Admin/O=HyOrg\" level=\"manager\"/>"), std::string::npos) << text;
    EXPECT_NE(text.find("<aclentry name=\"-Default-\" default=\"true\" level=\"reader\"/>"), std::string::npos);
    EXPECT_NE(text.find("<aclentry name=\"Anonymous\" level=\"noaccess\"/>"), std::string::npos);
    EXPECT_EQ(text.find("LocalDomainServers"), std::string::npos) << "the new list replaced the old one";
}

TEST_F(AclStore, MalformedImagesAndUnknownMethodsLeaveTheAclAlone)
{
    std::vector<char> before = storedAcl(db);
    std::vector<char> good = aclImage({{6, "CN=Admin/O=HyOrg"}});
    std::vector<char> shortName(good.begin(), good.end() - 1);
    std::vector<char> trailing = good;
    trailing.push_back('x');
    std::vector<char> badLevel = aclImage({{7, "CN=Admin/O=HyOrg"}});
    for (const auto& image : {shortName, trailing, badLevel, std::vector<char>(good.begin(), good.begin() + 6)})
        EXPECT_EQ(store(image), sim::STS_BAD_ARGUMENT);
    EXPECT_EQ(store(good, 2), sim::STS_UNSUPPORTED);
    EXPECT_EQ(store(good, 0, 4), sim::STS_BAD_ARGUMENT) << "the object ID is reserved";
    EXPECT_EQ(NSFDbStoreACL(db, 0x7FFFFFF0, 0, 0), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(storedAcl(db), before);
}

class ReplicaLocation : public StorageTest {
protected:
    // Creates `path` with the replica ID {low, high}.
    void createReplica(const std::string& path, DWORD high, DWORD low)
    {
        DBHANDLE db = createAndOpen(path);
        DBREPLICAINFO info{};
        ASSERT_EQ(NSFDbReplicaInfoGet(db, &info), NOERROR);
        info.ID = TIMEDATE{{low, high}};
        ASSERT_EQ(NSFDbReplicaInfoSet(db, &info), NOERROR);
        NSFDbClose(db);
    }
    STATUS locate(DBHANDLE directory, DWORD high, DWORD low, std::string& path, WORD maxLength = 255)
    {
        DBID id{{low, high}};
        char buffer[256] = {};
        STATUS status = NSFDbLocateByReplicaID(directory, &id, buffer, maxLength);
        path = buffer;
        return status;
    }
};

TEST_F(ReplicaLocation, FindsTheReplicaInSubdirectoriesRelativeToTheDataDirectory)
{
    std::filesystem::create_directories(dataDir + "/mail/deep");
    createReplica("top.nsf", 0x11111111, 0x22222222);
    createReplica("mail/deep/wanted.nsf", 0x8525721B, 0x0052A1C3);
    DBHANDLE data = open("");
    DBHANDLE mail = open("mail");
    std::string path;
    EXPECT_EQ(locate(data, 0x8525721B, 0x0052A1C3, path), NOERROR);
    EXPECT_EQ(path, "mail/deep/wanted.nsf");
    EXPECT_EQ(locate(mail, 0x8525721B, 0x0052A1C3, path), NOERROR) << "searching below the data directory";
    EXPECT_EQ(path, "mail/deep/wanted.nsf");
    EXPECT_EQ(locate(mail, 0x11111111, 0x22222222, path), ERR_NOT_FOUND) << "top.nsf is not below mail/";
    EXPECT_EQ(locate(data, 0x0052A1C3, 0x8525721B, path), ERR_NOT_FOUND) << "the words swapped";
    EXPECT_EQ(locate(data, 0x8525721B, 0x0052A1C3, path, 10), sim::STS_BAD_ARGUMENT) << "no cut paths";

    DBHANDLE database = open("top.nsf");
    EXPECT_EQ(locate(database, 0x11111111, 0x22222222, path), ERR_NOT_DIRECTORY);
    EXPECT_EQ(locate(NULLHANDLE, 0x11111111, 0x22222222, path), ERR_NULL_DBHANDLE);
    for (DBHANDLE handle : {data, mail, database})
        NSFDbClose(handle);
}
