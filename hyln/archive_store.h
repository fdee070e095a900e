// The archive a pass writes for one database: the DXL and a record of every archived
// note, the folder information that restore hands back to the library, the ACL and a
// manifest. Every file is written whole or not at all.
#ifndef HYLN_ARCHIVE_STORE_H
#define HYLN_ARCHIVE_STORE_H

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "commands.h"

namespace hyln {

// A folder of the database and the notes in it.
struct Folder {
    std::string title;
    UNIVERSALNOTEID unid{};
    std::set<NOTEID> members;
};

// What the archive keeps of one note besides its DXL.
struct ArchivedNote {
    std::string unid;                 // 32 hex digits, also the name of its files
    NOTEID noteId = 0;                // in the database it was archived from
    std::vector<std::string> folders; // UNIDs of the folders that held it
    std::string indexLine;
    int attachments = 0;
    size_t dxlBytes = 0;
};

std::string unidText(const UNIVERSALNOTEID& unid);
bool parseUnid(const std::string& text, UNIVERSALNOTEID& unid);

// Where the archive of `database` lives under `outDir`.
std::filesystem::path archiveDirOf(const std::string& outDir, const std::string& database);
std::filesystem::path dxlPathOf(const std::filesystem::path& archive, const std::string& unid);

// Every folder of the open database (design notes whose flags mark a folder) with its
// members; returns an exit code.
int readFolders(const Options& options, DBHANDLE database, std::vector<Folder>& folders);

bool writeRecord(const std::filesystem::path& archive, const ArchivedNote& note);
// The records of every note archived so far, by any run of the pass.
std::vector<ArchivedNote> readRecords(const std::filesystem::path& archive);
bool writeJsonFile(const std::filesystem::path& target, const nlohmann::json& value);

// The folder-information buffer: per folder its 28-byte identity (UNID first), the entry
// count, and per note an entry of `entrySize` bytes starting with its UNID.
std::vector<unsigned char> folderInformation(const std::vector<ArchivedNote>& notes, unsigned short entrySize);

} // namespace hyln

#endif
