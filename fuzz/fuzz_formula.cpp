// Formula text as the compiler reads it, and what compiles as the computation runs it
// over a note: an error status with its place for what is not valid, never a crash,
// a hang or a leaked handle.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {

NOTEHANDLE note = NULLHANDLE;

// A note with an item of each common kind for formulas to refer to.
void makeNote()
{
    DBHANDLE database = NULLHANDLE;
    if (HY_NSFDbCreate("formula.nsf", DBCLASS_NOTEFILE, FALSE) != NOERROR ||
        HY_NSFDbOpen("formula.nsf", &database) != NOERROR || HY_NSFNoteCreate(database, &note) != NOERROR)
        fail("cannot create the note for formulas");
    HY_NSFItemSetText(note, "Subject", "Quarterly figures", 17);
    HY_NSFItemSetText(note, "Form", "Memo", 4);
    double amount = 42.5;
    HY_NSFItemAppend(note, ITEM_SUMMARY, "Amount", 6, TYPE_NUMBER, &amount, sizeof amount);
}

void evaluate(FORMULAHANDLE formula)
{
    void* compiled = HY_OSLockObject(formula);
    HCOMPUTE compute = nullptr;
    if (HY_NSFComputeStart(0, compiled, &compute) == NOERROR) {
        DHANDLE result = NULLHANDLE;
        WORD length = 0;
        BOOL matches = FALSE, shouldDelete = FALSE, modified = FALSE;
        if (HY_NSFComputeEvaluate(compute, note, &result, &length, &matches, &shouldDelete, &modified) == NOERROR &&
            result != NULLHANDLE)
            HY_OSMemFree(result);
        HY_NSFComputeStop(compute);
    }
    HY_OSUnlockObject(formula);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    if (startRuntime(writeNotesIni(makeWorkDir("formula"))) != NOERROR)
        fail("the runtime did not start");
    makeNote();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string text(reinterpret_cast<const char*>(data), std::min<size_t>(size, MAXWORD));
    FORMULAHANDLE formula = NULLHANDLE;
    WORD formulaLength = 0;
    STATUS compileError = NOERROR;
    WORD line = 0, column = 0, offset = 0, errorLength = 0;
    STATUS status = HY_NSFFormulaCompile(nullptr, 0, text.data(), static_cast<WORD>(text.size()), &formula,
                                         &formulaLength, &compileError, &line, &column, &offset, &errorLength);
    if (status != NOERROR) {
        if (formula != NULLHANDLE)
            fail("a formula that failed to compile left a handle");
        if (offset > text.size() || errorLength > text.size() - offset)
            fail("the error's place lies outside the formula");
        return 0;
    }
    evaluate(formula);
    if (HY_OSMemFree(formula) != NOERROR)
        fail("the compiled formula could not be freed");
    return 0;
}
