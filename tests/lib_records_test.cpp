// The attachment and migration-criteria records.
#include <stdexcept>
#include <string>

#include "support/test_support.h"

using namespace hyln_test;

namespace {

class Records : public RuntimeTest {
protected:
    TIMEDATE at(long long unixSeconds)
    {
        sim().setClock(unixSeconds, 0);
        TIMEDATE value;
        HyLNUtilities::GetCurrentTimeDate(&value);
        return value;
    }

    ATTACHMENT attachment(const std::string& name, long long created)
    {
        ATTACHMENT file;
        file.CreationTime = at(created);
        file.ModifiedTime = at(created + 60);
        file.Size = 1234;
        file.Name = name;
        return file;
    }

    DbMigrateCriteria criteria(long long created)
    {
        DbMigrateCriteria record;
        record.CreationTime = at(created);
        record.ModifiedTime = at(created + 10);
        record.LastAccessedTime = at(created + 20);
        record.MessageBodySize = 100;
        record.AttachmentSize = 2468;
        record.AttachmentNumbers = 2;
        record.Attachments = {attachment("a.txt", created), attachment("b.txt", created)};
        return record;
    }
};

} // namespace

TEST_F(Records, AttachmentsCompareEveryField)
{
    ATTACHMENT fresh;
    EXPECT_EQ(fresh.Size, 0u);
    EXPECT_EQ(fresh.Name, "");
    EXPECT_EQ(fresh.Reserved, 0);

    ATTACHMENT base = attachment("Report.pdf", 1700000000);
    ATTACHMENT copy(base);
    EXPECT_TRUE(copy == base);

    ATTACHMENT other = base;
    other.Name = "report.pdf";
    EXPECT_FALSE(other == base);
    other = base;
    other.Reserved = 1;
    EXPECT_FALSE(other == base);
    other = base;
    other.Size = 1235;
    EXPECT_FALSE(other == base);
    other = base;
    other.ModifiedTime = at(1700000001);
    EXPECT_FALSE(other == base);
}

TEST_F(Records, CriteriaCompareMeasuresButNotAttachmentLists)
{
    DbMigrateCriteria first = criteria(1700000000);
    DbMigrateCriteria second = criteria(1700000000);
    second.Attachments.clear();
    EXPECT_TRUE(first == second);

    second.LastAccessedTime = at(1700000021);
    EXPECT_FALSE(first == second);
    DbMigrateCriteria third = criteria(1700000000);
    third.AttachmentNumbers = 3;
    EXPECT_FALSE(first == third);
}

TEST_F(Records, AssignmentCopiesTheListAndFailsOnSelfAssignment)
{
    DbMigrateCriteria source = criteria(1700000000);
    DbMigrateCriteria target;
    target.Attachments = {attachment("old.txt", 1600000000)};
    target = source;
    EXPECT_TRUE(target == source);
    ASSERT_EQ(target.Attachments.size(), 2u);
    EXPECT_EQ(target.Attachments[1].Name, "b.txt");
    EXPECT_EQ(target.AttachmentSize, 2468);

    DbMigrateCriteria& alias = source;
    EXPECT_THROW(source = alias, std::out_of_range);
    EXPECT_TRUE(source.Attachments.empty());
}

TEST_F(Records, DumpLogsFiveLines)
{
    DbMigrateCriteria record = criteria(1700000000);
    std::string created;
    std::string modified;
    ASSERT_FALSE(HyLNUtilities::GetTimeString(record.CreationTime, created).IsErrorSet());
    ASSERT_FALSE(HyLNUtilities::GetTimeString(record.ModifiedTime, modified).IsErrorSet());
    captureLog();
    record.dumpMigrationCriteria();
    EXPECT_EQ(logTexts(), (std::vector<std::string>{"CreationTime = " + created, "ModifiedTime = " + modified,
                                                     "MessageBodySize = 100", "AttachmentSize = 2468",
                                                     "AttachmentNumbers = 2"}));
    for (const LogLine& line : capturedLog())
        EXPECT_EQ(line.function, "dumpMigrationCriteria");
}

TEST_F(Records, CriteriaTextIsNotInterpreted)
{
    DbMigrateCriteria fromEmpty = HyLNUtilities::getMigrateCriteria("");
    DbMigrateCriteria fromText = HyLNUtilities::getMigrateCriteria("MessageBodySize=5;AttachmentNumbers=9");
    EXPECT_TRUE(fromEmpty == fromText);
    EXPECT_EQ(fromText.MessageBodySize, 0);
    EXPECT_EQ(fromText.AttachmentNumbers, 0);
    EXPECT_TRUE(fromText.Attachments.empty());
}
