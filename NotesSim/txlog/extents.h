// The transaction log on disk: a directory of extent files, each a header and then
// one record per note change, and a control file with the log's identity and how
// much of each extent has been archived. Every call locks the directory, so several
// processes on one data directory write one log.
#ifndef HYSIM_EXTENTS_H
#define HYSIM_EXTENTS_H

#include <map>
#include <string>
#include <vector>

#include "storage.h"

namespace sim {

enum : WORD { kTranslogCircular = 0, kTranslogArchive = 1, kTranslogLinear = 2 };

// From notes.ini: TRANSLOG_Status=1 turns logging on; TRANSLOG_Style (0 circular,
// 1 archive, 2 linear), TRANSLOG_Path (relative to the data directory, default
// "logdir") and TRANSLOG_ExtentSize (bytes per extent file, default 64 MB).
struct TranslogSettings {
    bool logged = false;
    WORD style = kTranslogCircular;
    std::string directory; // absolute
    DWORD extentSize = 0;
};
// STS_UNSUPPORTED for a style this runtime does not know.
STATUS readTranslogSettings(TranslogSettings& out);

// The identity of one database instance in the log: its replica ID and creation time.
UNID databaseInstanceId(const DatabaseProperties& properties);

// One record of an extent file.
struct LogRecord {
    DWORD magic;
    WORD change; // NoteChange
    WORD reserved;
    UNID database; // databaseInstanceId
    UNID note;
    NOTEID noteId;
    DWORD sequence;
    TIMEDATE modified;
};
static_assert(sizeof(LogRecord) == 56, "log records are 56 bytes");
LogRecord logRecordOf(const UNID& database, const NoteRecord& note, NoteChange change);

struct Extent {
    DWORD number = 0;
    std::string path; // absolute
    DWORD size = 0;   // bytes written
};

// Appends the record to the current extent, or to a new one when it would outgrow
// the configured size. The log gets its identity with its first use.
STATUS appendLogRecord(const TranslogSettings& settings, const LogRecord& record);
// The log's identity and the number of the extent being written (1 before the first record).
STATUS logIdentity(const TranslogSettings& settings, UNID& logId, DWORD& currentExtent);
// The extents holding bytes not yet archived, by number; the current one too.
STATUS extentsToArchive(const TranslogSettings& settings, UNID& logId, std::vector<Extent>& out);
// Records that the first `bytes` of each extent number are archived.
STATUS confirmArchived(const TranslogSettings& settings, const std::map<DWORD, DWORD>& bytes);

} // namespace sim

#endif
