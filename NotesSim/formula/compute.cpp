// NSFFormulaCompile and the NSFCompute* entry points.
//
// A compiled formula is a memory block: DWORD 'HYFC', WORD version, WORD text
// length, then the formula text, which compiling has checked. A computation parses
// that text once when it starts and evaluates the tree on each note.
#include <cstdint>
#include <cstring>

#include "handles.h"
#include "language.h"
#include "sim_core.h"
#include "storage.h"

namespace sim {
namespace {

constexpr DWORD kCompiledMagic = 0x43465948; // "HYFC"
constexpr WORD kCompiledVersion = 1;
constexpr size_t kCompiledHeader = sizeof(DWORD) + 2 * sizeof(WORD);

struct ComputeObject : HandleObject {
    ComputeObject() : HandleObject(HandleKind::Compute) {}
    std::unique_ptr<formula::Node> root;
};

DHANDLE handleOf(HCOMPUTE compute)
{
    auto bits = reinterpret_cast<uintptr_t>(compute);
    return bits <= MAXDWORD ? static_cast<DHANDLE>(bits) : NULLHANDLE;
}

template <class T>
void put(T* out, T value)
{
    if (out != nullptr)
        *out = value;
}

} // namespace

namespace formula {

bool parseCompiled(const void* compiled, size_t size, std::unique_ptr<Node>& root)
{
    const char* bytes = static_cast<const char*>(compiled);
    if (size < kCompiledHeader)
        return false;
    DWORD magic = 0;
    WORD version = 0;
    WORD length = 0;
    std::memcpy(&magic, bytes, sizeof magic);
    std::memcpy(&version, bytes + 4, sizeof version);
    std::memcpy(&length, bytes + 6, sizeof length);
    CompileError error;
    return magic == kCompiledMagic && version == kCompiledVersion && size >= kCompiledHeader + length &&
           parse(std::string(bytes + kCompiledHeader, length), root, error);
}

} // namespace formula
} // namespace sim

STATUS impl::NSFFormulaCompile(char* FormulaName, WORD FormulaNameLength, const char* FormulaText,
                               WORD FormulaTextLength, FORMULAHANDLE* rethFormula, WORD* retFormulaLength,
                               STATUS* retCompileError, WORD* retCompileErrorLine, WORD* retCompileErrorColumn,
                               WORD* retCompileErrorOffset, WORD* retCompileErrorLength)
{
    (void)FormulaName; // a name only labels a view column's formula
    (void)FormulaNameLength;
    if (rethFormula == nullptr || (FormulaText == nullptr && FormulaTextLength != 0))
        return sim::STS_BAD_ARGUMENT;
    *rethFormula = NULLHANDLE;
    std::string text(FormulaText != nullptr ? FormulaText : "", FormulaTextLength);
    std::unique_ptr<sim::formula::Node> root;
    sim::formula::CompileError error;
    bool compiled = sim::formula::parse(text, root, error);
    sim::put<STATUS>(retCompileError, compiled ? NOERROR : ERR_FORMULA_COMPILATION);
    sim::put<WORD>(retCompileErrorLine, compiled ? 0 : error.line);
    sim::put<WORD>(retCompileErrorColumn, compiled ? 0 : error.column);
    sim::put<WORD>(retCompileErrorOffset, compiled ? 0 : error.offset);
    sim::put<WORD>(retCompileErrorLength, compiled ? 0 : error.length);
    if (!compiled)
        return ERR_FORMULA_COMPILATION;
    std::vector<char> block(sim::kCompiledHeader);
    std::memcpy(block.data(), &sim::kCompiledMagic, sizeof(DWORD));
    std::memcpy(block.data() + 4, &sim::kCompiledVersion, sizeof(WORD));
    std::memcpy(block.data() + 6, &FormulaTextLength, sizeof(WORD));
    block.insert(block.end(), text.begin(), text.end());
    if (block.size() > MAXWORD)
        return ERR_FORMULA_COMPILATION;
    *rethFormula = sim::allocateMemoryWith(block.data(), block.size());
    sim::put<WORD>(retFormulaLength, static_cast<WORD>(block.size()));
    return NOERROR;
}

STATUS impl::NSFComputeStart(WORD Flags, void* lpCompiledFormula, HCOMPUTE* rethCompute)
{
    if (rethCompute == nullptr || lpCompiledFormula == nullptr)
        return sim::STS_BAD_ARGUMENT;
    *rethCompute = nullptr;
    if (Flags != 0)
        return sim::STS_UNSUPPORTED;
    auto compute = std::make_shared<sim::ComputeObject>();
    // The caller's block carries its own length in its header.
    const char* compiled = static_cast<const char*>(lpCompiledFormula);
    WORD length = 0;
    std::memcpy(&length, compiled + 6, sizeof length);
    if (!sim::formula::parseCompiled(compiled, sim::kCompiledHeader + length, compute->root))
        return sim::STS_BAD_ARGUMENT;
    *rethCompute = reinterpret_cast<HCOMPUTE>(static_cast<uintptr_t>(sim::registerHandle(compute)));
    return NOERROR;
}

STATUS impl::NSFComputeEvaluate(HCOMPUTE hCompute, NOTEHANDLE hNote, DHANDLE* rethResult, WORD* retResultLength,
                                BOOL* retNoteMatchesFormula, BOOL* retNoteShouldBeDeleted, BOOL* retNoteModified)
{
    auto compute = sim::findAs<sim::ComputeObject>(sim::handleOf(hCompute), sim::HandleKind::Compute);
    if (!compute)
        return sim::STS_INVALID_HANDLE;
    std::shared_ptr<sim::NoteObject> note;
    if (hNote != NULLHANDLE) {
        STATUS status = sim::lookupNote(hNote, note);
        if (status != NOERROR)
            return status;
    }
    sim::formula::Value value = sim::formula::evaluate(*compute->root, note.get());
    std::vector<char> result = sim::formula::encode(value);
    if (result.size() > MAXWORD)
        return sim::STS_FORMULA_RESULT_TOO_LARGE;
    if (rethResult != nullptr)
        *rethResult = sim::allocateMemoryWith(result.data(), result.size());
    sim::put<WORD>(retResultLength, static_cast<WORD>(result.size()));
    sim::put<BOOL>(retNoteMatchesFormula, sim::formula::isTrue(value) ? TRUE : FALSE);
    // The language has no FIELD assignments and no @DeleteDocument.
    sim::put<BOOL>(retNoteShouldBeDeleted, FALSE);
    sim::put<BOOL>(retNoteModified, FALSE);
    return NOERROR;
}

STATUS impl::NSFComputeStop(HCOMPUTE hCompute)
{
    return sim::releaseHandle(sim::handleOf(hCompute), sim::HandleKind::Compute) ? NOERROR : sim::STS_INVALID_HANDLE;
}
