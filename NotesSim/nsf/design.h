// What the runtime reads from view and folder design notes: their names ($TITLE:
// a title and its aliases joined by "|") and design flags ($Flags letters; a
// folder carries 'F').
#ifndef HYSIM_DESIGN_H
#define HYSIM_DESIGN_H

#include <string>
#include <vector>

#include "storage.h"

namespace sim {

constexpr char kFolderFlag = 'F';

// The text of the first item named `name` (ASCII case ignored); a text list gives its
// entries joined by "|". Empty when absent or not text.
std::string designText(const std::vector<ItemRecord>& items, const char* name);
// The title and each alias of a $TITLE text, blanks around each trimmed.
std::vector<std::string> designNames(const std::string& title);
// A view note whose $Flags hold the folder flag; ERR_INVALID_NOTE for anything else
// (ERR_NOTE_DELETED for a deletion stub).
STATUS checkFolder(Storage& storage, NOTEID folder);

} // namespace sim

#endif
