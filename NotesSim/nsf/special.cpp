// NSFTranslateSpecial: resolves the special texts of special_text.h for one collection
// entry; everything else is copied as it is. The result is cut to the output buffer.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "sim_core.h"
#include "special_text.h"

namespace {

struct EntryPlace {
    NOTEID noteId;
    const COLLECTIONPOSITION* position;
    const INDEXSPECIALINFO* info;
};

// One special text as written: its code and arguments.
struct Special {
    char code;
    std::vector<std::string> arguments;
};

// Parses the special text starting at `at` (on its first mark); false when it is not
// one (no closing mark), and the bytes are then ordinary text.
bool parseSpecial(const std::string& text, size_t at, Special& special, size_t& end)
{
    size_t close = text.find(sim::kSpecialMark, at + 1);
    if (close == std::string::npos || close == at + 1)
        return false;
    special.code = text[at + 1];
    special.arguments.clear();
    for (size_t next = at + 2; next < close;) {
        if (text[next] != sim::kSpecialArgument)
            return false;
        size_t stop = text.find(sim::kSpecialArgument, next + 1);
        stop = stop == std::string::npos || stop > close ? close : stop;
        special.arguments.push_back(text.substr(next + 1, stop - next - 1));
        next = stop;
    }
    end = close + 1;
    return true;
}

STATUS levelNumber(const Special& special, const COLLECTIONPOSITION* position, bool parent, std::string& out)
{
    if (position == nullptr || position->Level >= MAXTUMBLERLEVELS)
        return sim::STS_BAD_ARGUMENT;
    if (special.arguments.size() > 1)
        return sim::STS_UNSUPPORTED;
    if (parent && position->Level == 0)
        return NOERROR;
    const size_t last = parent ? position->Level - 1u : position->Level;
    if (special.arguments.size() == 1 && special.arguments[0].empty()) {
        out = std::to_string(position->Tumbler[last]);
        return NOERROR;
    }
    const char separator = special.arguments.empty() ? '.' : special.arguments[0][0];
    for (size_t level = 0; level <= last; ++level) {
        if (level > 0)
            out += separator;
        out += std::to_string(position->Tumbler[level]);
    }
    return NOERROR;
}

STATUS choice(const Special& special, bool condition, const char* whenTrue, const char* whenFalse, std::string& out)
{
    switch (special.arguments.size()) {
    case 0:
        out = condition ? whenTrue : whenFalse;
        return NOERROR;
    case 1:
        out = condition ? special.arguments[0] : std::string();
        return NOERROR;
    case 2:
        out = condition ? special.arguments[0] : special.arguments[1];
        return NOERROR;
    default:
        return sim::STS_UNSUPPORTED;
    }
}

STATUS count(const Special& special, DWORD value, std::string& out)
{
    if (!special.arguments.empty())
        return sim::STS_UNSUPPORTED;
    out = std::to_string(value);
    return NOERROR;
}

STATUS resolve(const Special& special, const EntryPlace& place, std::string& out)
{
    const INDEXSPECIALINFO* info = place.info;
    const bool needsInfo = special.code == sim::kDocSiblings || special.code == sim::kDocChildren ||
                           special.code == sim::kDocDescendants || special.code == sim::kIsExpandable;
    if (needsInfo && info == nullptr)
        return sim::STS_BAD_ARGUMENT;
    switch (special.code) {
    case sim::kDocNumber:
        return levelNumber(special, place.position, false, out);
    case sim::kDocParentNumber:
        return levelNumber(special, place.position, true, out);
    case sim::kDocLevel:
        if (place.position == nullptr)
            return sim::STS_BAD_ARGUMENT;
        return count(special, place.position->Level + 1u, out);
    case sim::kDocSiblings:
        return count(special, info->IndexSiblings, out);
    case sim::kDocChildren:
        return count(special, info->IndexChildren, out);
    case sim::kDocDescendants:
        return count(special, info->IndexDescendants, out);
    case sim::kIsExpandable:
        return choice(special, info->IndexChildren != 0, "+", "-", out);
    case sim::kIsCategory:
        return choice(special, (place.noteId & NOTEID_CATEGORY) != 0, "*", "", out);
    default:
        return sim::STS_UNSUPPORTED;
    }
}

} // namespace

STATUS impl::NSFTranslateSpecial(void* InputString, WORD InputStringLength, void* OutputString,
                                 WORD OutputStringBufferLength, NOTEID NoteID, void* IndexPosition,
                                 INDEXSPECIALINFO* IndexInfo, DHANDLE, DHANDLE, char*, char*, WORD* retLength)
{
    if ((InputString == nullptr && InputStringLength != 0) || OutputString == nullptr || retLength == nullptr)
        return sim::STS_BAD_ARGUMENT;
    const std::string input(static_cast<const char*>(InputString), InputStringLength);
    const EntryPlace place{NoteID, static_cast<const COLLECTIONPOSITION*>(IndexPosition), IndexInfo};
    std::string output;
    for (size_t at = 0; at < input.size();) {
        Special special;
        size_t end = 0;
        if (input[at] != sim::kSpecialMark || !parseSpecial(input, at, special, end)) {
            output += input[at++];
            continue;
        }
        std::string resolved;
        STATUS status = resolve(special, place, resolved);
        if (status != NOERROR)
            return status;
        output += resolved;
        at = end;
    }
    WORD length = static_cast<WORD>(std::min<size_t>(output.size(), OutputStringBufferLength));
    std::memcpy(OutputString, output.data(), length);
    *retLength = length;
    return NOERROR;
}
