// Which notes an archiving pass takes: those modified since the last pass, never an
// unread one, and only (or never) those in chosen folders.
#ifndef HYLN_SELECTION_H
#define HYLN_SELECTION_H

#include <vector>

#include "commands.h"

namespace hyln {

struct Selection {
    std::vector<NOTEID> notes; // in the order the runtime's table gives them
    size_t modified = 0;       // live notes modified since the given time
    size_t deleted = 0;        // deletions reported with them
    size_t unreadSkipped = 0;
    size_t removedByFolders = 0;
    std::string folderWarning; // set when the folder filter reported an error but filtered
};

// Fills `selection` for the open database; returns an exit code.
int chooseNotes(const Options& options, HyLNDatabase& database, Selection& selection);

} // namespace hyln

#endif
