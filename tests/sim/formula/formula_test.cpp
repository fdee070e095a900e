// The formula service: what the language computes, where compiling fails, and the
// life of a computation.
#include <cstdint>

#include "sim/support/storage_fixture.h"

using storage_test::StorageTest;

namespace {

template <class T>
void put(std::vector<char>& out, const T& value)
{
    const char* bytes = reinterpret_cast<const char*>(&value);
    out.insert(out.end(), bytes, bytes + sizeof value);
}

std::vector<char> numbers(const std::vector<double>& list)
{
    std::vector<char> out;
    put<WORD>(out, TYPE_NUMBER_RANGE);
    put(out, RANGE{static_cast<WORD>(list.size()), 0});
    for (double number : list)
        put(out, number);
    return out;
}

std::vector<char> texts(const std::vector<std::string>& list)
{
    std::vector<char> out;
    put<WORD>(out, TYPE_TEXT_LIST);
    put<WORD>(out, static_cast<WORD>(list.size()));
    for (const std::string& text : list)
        put<WORD>(out, static_cast<WORD>(text.size()));
    for (const std::string& text : list)
        out.insert(out.end(), text.begin(), text.end());
    return out;
}

std::vector<char> evaluationError()
{
    std::vector<char> out;
    put<WORD>(out, TYPE_ERROR);
    put<WORD>(out, sim::STS_FORMULA_EVALUATION);
    return out;
}

struct Compiled {
    STATUS status = 0xFFFF;
    FORMULAHANDLE handle = NULLHANDLE;
    WORD length = 0;
    STATUS error = 0xFFFF;
    WORD line = 0xFFFF, column = 0xFFFF, offset = 0xFFFF, errorLength = 0xFFFF;
};

Compiled compile(const std::string& text)
{
    Compiled c;
    c.status = NSFFormulaCompile(nullptr, 0, text.data(), static_cast<WORD>(text.size()), &c.handle, &c.length,
                                 &c.error, &c.line, &c.column, &c.offset, &c.errorLength);
    return c;
}

class Formula : public StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        db = createAndOpen("formula.nsf");
        note = newNote(db);
        setText(note, "Subject", "Hello");
        double count = 3;
        append(note, "Count", TYPE_NUMBER, &count, sizeof count);
        std::string tags = std::string("\x02\x00\x01\x00\x02\x00", 6) + "abb";
        append(note, "Tags", TYPE_TEXT_LIST, tags.data(), static_cast<DWORD>(tags.size()));
        std::vector<char> sizes = numbers({1, 2, 3});
        append(note, "Sizes", TYPE_NUMBER_RANGE, sizes.data() + 2, static_cast<DWORD>(sizes.size() - 2));
    }
    void TearDown() override
    {
        NSFNoteClose(note);
        NSFDbClose(db);
        StorageTest::TearDown();
    }

    // Compiles, starts, evaluates on `on`, stops; the result buffer as it came.
    std::vector<char> run(const std::string& text, NOTEHANDLE on, BOOL* matches = nullptr)
    {
        Compiled c = compile(text);
        EXPECT_EQ(c.status, NOERROR) << text;
        if (c.status != NOERROR)
            return {};
        HCOMPUTE compute = nullptr;
        EXPECT_EQ(NSFComputeStart(0, OSLockObject(c.handle), &compute), NOERROR);
        DHANDLE result = NULLHANDLE;
        WORD length = 0;
        EXPECT_EQ(NSFComputeEvaluate(compute, on, &result, &length, matches, nullptr, nullptr), NOERROR);
        const char* bytes = static_cast<const char*>(OSLockObject(result));
        std::vector<char> out(bytes, bytes + length);
        OSUnlockObject(result);
        EXPECT_EQ(OSMemFree(result), NOERROR);
        EXPECT_EQ(NSFComputeStop(compute), NOERROR);
        OSUnlockObject(c.handle);
        EXPECT_EQ(OSMemFree(c.handle), NOERROR);
        return out;
    }

    DBHANDLE db = NULLHANDLE;
    NOTEHANDLE note = NULLHANDLE;
};

} // namespace

TEST_F(Formula, ValuesOperatorsAndFunctions)
{
    const struct {
        const char* formula;
        std::vector<char> result;
    } cases[] = {
        {"1 + 2 * 3", numbers({7})},
        {"(1 + 2) * 3", numbers({9})},
        {"-Count + 10", numbers({7})},
        {"10 / 4", numbers({2.5})},
        {"\"a\\\"b\" + Subject", texts({"a\"bHello"})},
        {"subject = \"Hello\"", numbers({1})},
        {"Subject = \"hello\"", numbers({0})},
        {"Count >= 3 & Count < 4", numbers({1})},
        {"Count > 5 | Subject != \"x\"", numbers({1})},
        {"!(Count = 3)", numbers({0})},
        {"Count <> 3", numbers({0})},
        {"Tags = \"bb\"", numbers({1})},
        {"Sizes * 2", numbers({2, 4, 6})},
        {"Sizes + Count", numbers({4, 5, 6})},
        {"@Length(Tags)", numbers({1, 2})},
        {"@Length(Missing)", numbers({0})},
        {"Missing", texts({""})},
        {"@Text(Sizes / 4)", texts({"0.25", "0.5", "0.75"})},
        {"@Text(Subject)", texts({"Hello"})},
        {"@If(Count = 1; \"one\"; Count = 3; \"three\"; \"many\")", texts({"three"})},
        {"@if(0; 1; 2)", numbers({2})},
        {"0 & (1 / 0)", numbers({0})},
        {"1 / 0", evaluationError()},
        {"Subject * 2", evaluationError()},
        {"Subject = 2", evaluationError()},
        {"@Length(Count)", evaluationError()},
        {"@If(Subject; 1; 2)", evaluationError()},
        {"@Text(1 / 0)", evaluationError()},
    };
    for (const auto& c : cases)
        EXPECT_EQ(run(c.formula, note), c.result) << c.formula;
}

TEST_F(Formula, NoteTimesAndWhetherTheNoteMatches)
{
    OID oid{};
    NSFNoteGetInfo(note, _NOTE_OID, &oid);
    auto timeResult = [](const TIMEDATE& time) {
        std::vector<char> out;
        put<WORD>(out, TYPE_TIME_RANGE);
        put(out, RANGE{1, 0});
        put(out, time);
        return out;
    };
    EXPECT_EQ(run("@Created", note), timeResult(oid.Note));
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    TIMEDATE modified{};
    NSFNoteGetInfo(note, _NOTE_MODIFIED, &modified);
    EXPECT_EQ(run("@Modified", note), timeResult(modified));
    EXPECT_EQ(run("@Modified >= @Created", note), numbers({1}));

    BOOL matches = 7;
    run("Count = 3", note, &matches);
    EXPECT_EQ(matches, TRUE);
    run("Subject", note, &matches);
    EXPECT_EQ(matches, FALSE);
}

TEST_F(Formula, DocLengthCountsItemsAndAttachedFiles)
{
    NOTEHANDLE small = newNote(db);
    setText(small, "Subject", "Hi");
    std::string file = dataDir + "/seventeen.txt";
    storage_test::writeFile(file, "quarterly numbers");
    ASSERT_EQ(NSFNoteAttachFile(small, "$FILE", 5, file.c_str(), "r.txt", 0), NOERROR);
    // "Subject" + type word + "Hi"; "$FILE" + type word + file object + "r.txt"; the file's 17 bytes.
    double expected = (7 + 2 + 2) + (5 + 2 + 36 + 5) + 17;
    EXPECT_EQ(run("@DocLength", small), numbers({expected}));
    NSFNoteClose(small);
    // Without a note there is nothing to measure.
    EXPECT_EQ(run("@DocLength + Missing", NULLHANDLE), evaluationError());
    EXPECT_EQ(run("@DocLength", NULLHANDLE), numbers({0}));
    EXPECT_EQ(run("@Created", NULLHANDLE), evaluationError());
}

TEST_F(Formula, CompileErrorsPointAtTheirToken)
{
    const struct {
        std::string formula;
        WORD line, column, offset, length;
    } cases[] = {
        {"@Unknown(1)", 1, 1, 0, 8},
        {"1 +", 1, 4, 3, 0},
        {"Subject Count", 1, 9, 8, 5},
        {"SELECT @All", 1, 8, 7, 4},
        {"@If(1; 2)", 1, 1, 0, 3},
        {"@Length(1; 2)", 1, 1, 0, 7},
        {"@DocLength(1)", 1, 1, 0, 10},
        {"\"open", 1, 1, 0, 5},
        {"1\n + #", 2, 4, 5, 1},
        {"(1", 1, 3, 2, 0},
        {"12abc", 1, 1, 0, 5},
        {"", 1, 1, 0, 0},
    };
    for (const auto& c : cases) {
        Compiled compiled = compile(c.formula);
        EXPECT_EQ(compiled.status, ERR_FORMULA_COMPILATION) << c.formula;
        EXPECT_EQ(compiled.handle, NULLHANDLE);
        EXPECT_EQ(compiled.error, ERR_FORMULA_COMPILATION);
        EXPECT_EQ(compiled.line, c.line) << c.formula;
        EXPECT_EQ(compiled.column, c.column) << c.formula;
        EXPECT_EQ(compiled.offset, c.offset) << c.formula;
        EXPECT_EQ(compiled.errorLength, c.length) << c.formula;
    }
    // Nesting and operator chains are bounded.
    EXPECT_EQ(compile(std::string(600, '(') + "1" + std::string(600, ')')).status, ERR_FORMULA_COMPILATION);
    std::string chain = "1";
    for (int i = 0; i < 1000; ++i)
        chain += "+1";
    EXPECT_EQ(compile(chain).status, ERR_FORMULA_COMPILATION);
    EXPECT_EQ(compile(std::string(300, '-') + "1").status, NOERROR);
}

TEST_F(Formula, ComputationLifecycle)
{
    Compiled c = compile("@DocLength");
    ASSERT_EQ(c.status, NOERROR);
    EXPECT_EQ(c.error, NOERROR);
    EXPECT_EQ(c.length, 8 + 10);
    DWORD size = 0;
    ASSERT_EQ(OSMemGetSize(c.handle, &size), NOERROR);
    EXPECT_EQ(size, c.length);

    void* formula = OSLockObject(c.handle);
    HCOMPUTE compute = nullptr;
    EXPECT_EQ(NSFComputeStart(1, formula, &compute), sim::STS_UNSUPPORTED);
    std::vector<char> garbage(32, 'x');
    EXPECT_EQ(NSFComputeStart(0, garbage.data(), &compute), sim::STS_BAD_ARGUMENT);
    EXPECT_EQ(compute, nullptr);
    ASSERT_EQ(NSFComputeStart(0, formula, &compute), NOERROR);
    EXPECT_EQ(OSMemFree(c.handle), sim::STS_HANDLE_LOCKED); // the computation runs on the locked formula

    WORD length = 0;
    EXPECT_EQ(NSFComputeEvaluate(compute, note + 1000, nullptr, &length, nullptr, nullptr, nullptr),
              sim::STS_INVALID_HANDLE);
    EXPECT_EQ(NSFComputeEvaluate(compute, note, nullptr, &length, nullptr, nullptr, nullptr), NOERROR);
    EXPECT_EQ(length, 2 + 4 + 8); // one number in list form
    ASSERT_EQ(NSFComputeStop(compute), NOERROR);
    EXPECT_EQ(NSFComputeStop(compute), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(NSFComputeEvaluate(compute, note, nullptr, nullptr, nullptr, nullptr, nullptr), sim::STS_INVALID_HANDLE);
    OSUnlockObject(c.handle);
    EXPECT_EQ(OSMemFree(c.handle), NOERROR);

    FORMULAHANDLE none = 5;
    EXPECT_EQ(NSFFormulaCompile(nullptr, 0, nullptr, 3, &none, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              sim::STS_BAD_ARGUMENT);
}
