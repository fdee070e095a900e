// NIFFindDesignNoteExt: a design note by its title or any alias, its class and a
// design-flag pattern over its $Flags letters.
#include <strings.h>

#include <string>
#include <vector>

#include "design.h"
#include "sim_core.h"

namespace sim {
namespace nif {
namespace {

// A pattern is a mode character and flag letters: '-' none of them, '+' any of
// them, '*' all of them. Null or empty asks nothing. Compound patterns are not simulated.
STATUS matchesPattern(const char* pattern, const std::string& flags, bool& matches)
{
    matches = true;
    if (pattern == nullptr || *pattern == '\0')
        return NOERROR;
    std::string letters(pattern + 1);
    auto has = [&flags](char letter) { return flags.find(letter) != std::string::npos; };
    size_t present = 0;
    for (char letter : letters)
        present += has(letter) ? 1 : 0;
    switch (pattern[0]) {
    case '-':
        matches = present == 0;
        return NOERROR;
    case '+':
        matches = present > 0;
        return NOERROR;
    case '*':
        matches = present == letters.size();
        return NOERROR;
    default:
        return STS_UNSUPPORTED;
    }
}

bool hasName(const std::string& title, const std::string& wanted)
{
    for (const std::string& name : designNames(title))
        if (name.size() == wanted.size() && strncasecmp(name.data(), wanted.data(), name.size()) == 0)
            return true;
    return false;
}

} // namespace
} // namespace nif
} // namespace sim

STATUS impl::NIFFindDesignNoteExt(DBHANDLE hFile, const char* Name, WORD Class, const char* pszFlagsPattern,
                                  NOTEID* retNoteID, DWORD Options)
{
    if (Name == nullptr || retNoteID == nullptr)
        return sim::STS_BAD_ARGUMENT;
    if (Options != 0)
        return sim::STS_UNSUPPORTED; // partial names are not simulated
    std::shared_ptr<sim::Storage> storage;
    std::vector<sim::NoteRecord> notes;
    TIMEDATE until{};
    STATUS status = sim::lookupStorage(hFile, storage);
    if (status == NOERROR)
        status = storage->listNotes(static_cast<WORD>(Class & NOTE_CLASS_ALLNONDATA), false, nullptr, notes, until);
    std::string wanted = Name;
    for (size_t i = 0; i < notes.size() && status == NOERROR; ++i) {
        std::vector<sim::ItemRecord> items;
        bool matches = false;
        if ((status = storage->readItems(notes[i].id, false, items)) != NOERROR ||
            !sim::nif::hasName(sim::designText(items, "$TITLE"), wanted) ||
            (status = sim::nif::matchesPattern(pszFlagsPattern, sim::designText(items, "$Flags"), matches)) != NOERROR ||
            !matches)
            continue;
        *retNoteID = notes[i].id;
        return NOERROR;
    }
    return status != NOERROR ? status : ERR_NOT_FOUND;
}
