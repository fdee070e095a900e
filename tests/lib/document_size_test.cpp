// Age and size of a note: the one-cycle size formula, the sent/received time and its fallbacks.
#include <climits>
#include <string>

#include "HYLNTool_Document.h"
#include "support/document_fixture.h"

using namespace hyln_test;

namespace {

// Later than any real clock the database was created under, so saves take the set time.
const long long kNow = 2000000000;
const int kThrow = 1;

class DocumentAge : public DocumentTest {
protected:
    // An open note with the given time items, created at `createdAt` and saved at `savedAt`.
    void openNote(HyLNDataDocument& doc, long long savedAt, const std::vector<std::pair<const char*, long long>>& times,
                  long long createdAt = 0)
    {
        at(createdAt != 0 ? createdAt : savedAt);
        doc.dbHandle = db;
        ASSERT_FALSE(doc.Create().IsErrorSet());
        for (const auto& item : times)
            appendTime(doc.noteHandle, item.first, at(item.second));
        at(savedAt);
        ASSERT_FALSE(doc.Update(0).IsErrorSet());
        at(kNow);
        captureLog();
    }
};

} // namespace

TEST_F(DocumentAge, SizeFormulaOneCycle)
{
    HyLNUtilities sizes;
    EXPECT_EQ(sizes.GetSizeFormulaHandle(), nullptr);
    EXPECT_EQ(sizes.ShutdownFormulaComputation().GetMessage(), "Note Size Formula is not initialized");
    ASSERT_FALSE(sizes.InitializeFormulaComputation().IsErrorSet());
    ASSERT_NE(sizes.GetSizeFormulaHandle(), nullptr);
    EXPECT_EQ(sizes.InitializeFormulaComputation().GetMessage(), "Formula already initialized");
    EXPECT_EQ(sim().callCount("NSFFormulaCompile"), 1u);

    HyLNDataDocument doc(db, 0);
    ASSERT_FALSE(doc.Create().IsErrorSet());
    ASSERT_FALSE(doc.SetItemText("Subject", "Hi").IsErrorSet());
    unsigned int size = 0;
    ASSERT_FALSE(doc.GetSize(size, sizes.GetSizeFormulaHandle()).IsErrorSet());
    EXPECT_EQ(size, 7u + 2 + 2); // the item's name, type word and text
    std::string file = writeFile("data.bin", std::string(1000, 'd'));
    ASSERT_FALSE(doc.SetAttachment("$FILE", file, "d.bin", 0).IsErrorSet());
    ASSERT_FALSE(doc.GetSize(size, sizes.GetSizeFormulaHandle()).IsErrorSet());
    EXPECT_EQ(size, 11u + 5 + 2 + 36 + 5 + 1000);

    ASSERT_FALSE(sizes.ShutdownFormulaComputation().IsErrorSet());
    // The handles are kept: no second cycle, and a second shutdown stops nothing.
    EXPECT_EQ(sizes.InitializeFormulaComputation().GetMessage(), "Formula already initialized");
    EXPECT_TRUE(sizes.ShutdownFormulaComputation().IsErrorSet());
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(DocumentAge, SizeFormulaFailures)
{
    HyLNUtilities notCompiled;
    sim().setFault("NSFFormulaCompile", ERR_FORMULA_COMPILATION, 0, 0);
    EXPECT_EQ(notCompiled.InitializeFormulaComputation().GetErrorCode(), ERR_FORMULA_COMPILATION);
    sim().clearFaults();
    EXPECT_EQ(notCompiled.GetSizeFormulaHandle(), nullptr);

    HyLNUtilities notStarted;
    sim().setFault("NSFComputeStart", kItemNotFound, 0, 0);
    EXPECT_EQ(notStarted.InitializeFormulaComputation().GetErrorCode(), kItemNotFound);
    sim().clearFaults();
    EXPECT_EQ(sim().callCount("OSMemFree"), 1u); // the compiled formula is released
    EXPECT_EQ(notStarted.InitializeFormulaComputation().GetMessage(), "Formula already initialized");

    HyLNUtilities sizes;
    ASSERT_FALSE(sizes.InitializeFormulaComputation().IsErrorSet());
    HyLNDataDocument doc(db, saveNote("measured"));
    ASSERT_FALSE(doc.Open(0).IsErrorSet());
    unsigned int size = 12345;
    EXPECT_EQ(doc.GetSize(size, nullptr).GetMessage(),
              "Null computation handle received. Probable cause, formula computation not initialized.");
    sim().setFault("NSFComputeEvaluate", kItemNotFound, 0, 0);
    EXPECT_EQ(doc.GetSize(size, sizes.GetSizeFormulaHandle()).GetErrorCode(), kItemNotFound);
    sim().clearFaults();
    EXPECT_EQ(size, 12345u);

    // A computation that yields text instead of a number.
    FORMULAHANDLE formula = NULLHANDLE;
    WORD length = 0, ignored = 0;
    ASSERT_EQ(HY_NSFFormulaCompile(nullptr, 0, "Subject", 7, &formula, &length, &ignored, &ignored, &ignored,
                                   &ignored, &ignored),
              NOERROR);
    HCOMPUTE text = nullptr;
    ASSERT_EQ(HY_NSFComputeStart(0, HY_OSLockObject(formula), &text), NOERROR);
    EXPECT_EQ(doc.GetSize(size, text).GetMessage(), "Unknown type returned while evaluating note size.");
    EXPECT_EQ(size, 12345u);
    HY_NSFComputeStop(text);
    HY_OSUnlockObject(formula);
    HY_OSMemFree(formula);
    sizes.ShutdownFormulaComputation();
}

TEST_F(DocumentAge, AgeFromDeliveryPostingOrRevision)
{
    const struct {
        const char* name;
        std::vector<std::pair<const char*, long long>> times;
        unsigned long useSentReceived;
        unsigned long age;
    } cases[] = {
        // First, so that its save is stamped at exactly the time set.
        {"latest revision, not creation", {{"DeliveredDate", kNow - 3600}}, 0, 86400},
        {"delivered wins", {{"PostedDate", kNow - 7200}, {"DeliveredDate", kNow - 3600}}, 1, 3600},
        {"posted when not delivered", {{"PostedDate", kNow - 7200}}, 1, 7200},
        {"future time wraps", {{"DeliveredDate", kNow + 10}}, 1, ULONG_MAX - 9},
    };
    for (const auto& c : cases) {
        HyLNDataDocument doc;
        openNote(doc, kNow - 86400, c.times, kNow - 365 * 86400);
        unsigned long age = 1;
        ASSERT_FALSE(doc.GetAgeInSeconds(age, c.useSentReceived).IsErrorSet()) << c.name;
        EXPECT_EQ(age, c.age) << c.name;
        EXPECT_TRUE(capturedLog().empty()) << c.name;
    }

    HyLNDataDocument neither;
    openNote(neither, kNow - 86400, {});
    unsigned long age = 1;
    ASSERT_FALSE(neither.GetAgeInSeconds(age, 1).IsErrorSet());
    EXPECT_EQ(age, 0u);
    expectOnlyLine("GetAgeInSeconds", 2,
                   "Warning: unable to determine sent/received time for a note. Will use default age of 0 seconds.");
}

TEST_F(DocumentAge, SentReceivedTimeFallsBackToCreation)
{
    HyLNDataDocument delivered, posted, neither;
    openNote(delivered, kNow - 100, {{"DeliveredDate", kNow - 50}, {"PostedDate", kNow - 60}});
    openNote(posted, kNow - 100, {{"PostedDate", kNow - 60}});
    openNote(neither, kNow - 100, {});
    const struct {
        HyLNDataDocument* doc;
        TIMEDATE expected;
    } cases[] = {{&delivered, at(kNow - 50)}, {&posted, at(kNow - 60)}};
    for (const auto& c : cases) {
        TIMEDATE time{};
        ASSERT_FALSE(c.doc->GetSentRecievedTime(time).IsErrorSet());
        EXPECT_EQ(HY_TimeDateCompare(&time, &c.expected), 0);
    }
    TIMEDATE time{}, created{};
    ASSERT_FALSE(neither.GetSentRecievedTime(time).IsErrorSet());
    ASSERT_FALSE(neither.GetCreationTime(created).IsErrorSet());
    EXPECT_EQ(HY_TimeDateCompare(&time, &created), 0);
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(DocumentAge, ExceptionsLeaveOnlyAMessage)
{
    HyLNDataDocument doc;
    openNote(doc, kNow - 100, {});
    const std::string prefix = "Error: caught an exception of unknown type thrown by Domino API function: ";
    unsigned long age = 5;
    TIMEDATE time{};
    sim().setFault("NSFItemGetTime", 0, 0, kThrow);
    HyLNError ageStatus = doc.GetAgeInSeconds(age, 1);
    HyLNError timeStatus = doc.GetSentRecievedTime(time);
    sim().setFault("NSFNoteGetInfo", 0, 0, kThrow);
    HyLNError revisionStatus = doc.GetAgeInSeconds(age, 0);
    for (HyLNError status : {ageStatus, revisionStatus})
        EXPECT_TRUE(status.IsErrorSet() && status.GetErrorCode() == 0 && status.GetMessage() == prefix);
    EXPECT_EQ(timeStatus.GetErrorCode(), 0);
    EXPECT_EQ(timeStatus.GetMessage(), prefix + "[NSFItemGetTime(\t...)].");
    EXPECT_EQ(age, 5u);
}
