// The attachment and migration-criteria records.
#include <stdexcept>
#include <string>

#include "support/test_support.h"

using namespace hyln_test;

namespace {

class Records : public RuntimeTest {
protected:
    static TIMEDATE at(long long unixSeconds)
    {
        sim().setClock(unixSeconds, 0);
        TIMEDATE value;
        HyLNUtilities::GetCurrentTimeDate(&value);
        return value;
    }

    static ATTACHMENT attachment(const std::string& name)
    {
        ATTACHMENT file;
        file.CreationTime = at(1700000000);
        file.ModifiedTime = at(1700000060);
        file.Size = 1234;
        file.Name = name;
        return file;
    }

    static DbMigrateCriteria criteria()
    {
        DbMigrateCriteria record;
        record.CreationTime = at(1700000000);
        record.ModifiedTime = at(1700000010);
        record.LastAccessedTime = at(1700000020);
        record.MessageBodySize = 100;
        record.AttachmentSize = 2468;
        record.AttachmentNumbers = 2;
        record.Attachments = {attachment("a.txt"), attachment("b.txt")};
        return record;
    }
};

} // namespace

TEST_F(Records, AttachmentsCompareEveryField)
{
    ATTACHMENT fresh;
    EXPECT_TRUE(fresh.Size == 0 && fresh.Name.empty() && fresh.Reserved == 0);
    ATTACHMENT base = attachment("Report.pdf");
    EXPECT_TRUE(ATTACHMENT(base) == base);
    ATTACHMENT other = base;
    other.Name = "report.pdf";
    EXPECT_FALSE(other == base);
    (other = base).Reserved = 1;
    EXPECT_FALSE(other == base);
    (other = base).ModifiedTime = at(1700000061);
    EXPECT_FALSE(other == base);
}

TEST_F(Records, CriteriaCompareMeasuresButNotAttachmentLists)
{
    DbMigrateCriteria first = criteria();
    DbMigrateCriteria second = criteria();
    second.Attachments.clear();
    EXPECT_TRUE(first == second);
    second.LastAccessedTime = at(1700000021);
    EXPECT_FALSE(first == second);
    DbMigrateCriteria third = criteria();
    third.AttachmentNumbers = 3;
    EXPECT_FALSE(first == third);
    EXPECT_TRUE(HyLNUtilities::getMigrateCriteria("") ==
                HyLNUtilities::getMigrateCriteria("MessageBodySize=5;AttachmentNumbers=9"));
    EXPECT_EQ(HyLNUtilities::getMigrateCriteria("MessageBodySize=5").MessageBodySize, 0);
}

TEST_F(Records, AssignmentCopiesTheListAndFailsOnSelfAssignment)
{
    DbMigrateCriteria source = criteria();
    DbMigrateCriteria target;
    target.Attachments = {attachment("old.txt")};
    target = source;
    EXPECT_TRUE(target == source);
    ASSERT_EQ(target.Attachments.size(), 2u);
    EXPECT_EQ(target.Attachments[1].Name, "b.txt");

    DbMigrateCriteria& alias = source;
    EXPECT_THROW(source = alias, std::out_of_range);
    EXPECT_TRUE(source.Attachments.empty());
}

TEST_F(Records, DumpLogsFiveLines)
{
    DbMigrateCriteria record = criteria();
    std::string created, modified;
    HyLNUtilities::GetTimeString(record.CreationTime, created);
    HyLNUtilities::GetTimeString(record.ModifiedTime, modified);
    ASSERT_NE(created, modified);
    captureLog();
    record.dumpMigrationCriteria();
    EXPECT_EQ(logTexts(), (std::vector<std::string>{"CreationTime = " + created, "ModifiedTime = " + modified,
                                                     "MessageBodySize = 100", "AttachmentSize = 2468",
                                                     "AttachmentNumbers = 2"}));
    for (const LogLine& line : capturedLog())
        EXPECT_EQ(line.function, "dumpMigrationCriteria");
}
