// NSFSearch over a directory handle (SEARCH_FILETYPE): one callback per database
// file found, with the summary items a directory search returns ($TITLE, $Path,
// $Type, $Modified, $Length, $Info).
#ifndef HYSIM_DIRSEARCH_H
#define HYSIM_DIRSEARCH_H

#include <string>

#include "HYLNTool_NotesAPI.h"

namespace sim {

// `directory` is absolute; $Path values are relative to the data directory.
STATUS searchDirectory(const std::string& directory, WORD searchFlags, WORD fileTypeMask,
                       NSFSEARCHPROC routine, void* parameter, TIMEDATE* retUntil);

// The first database file (in path order) under `directory`, subdirectories included,
// whose replica ID is `replicaId`: its LMBCS path relative to the data directory.
// ERR_NOT_FOUND when there is none.
STATUS locateReplica(const std::string& directory, const DBID& replicaId, std::string& path);

} // namespace sim

#endif
