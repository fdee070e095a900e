// Writes item values into a database file behind the runtime's back, for values
// the API itself never writes (a value of zero length, without a type word).
#ifndef HYLN_TEST_RAW_ITEMS_H
#define HYLN_TEST_RAW_ITEMS_H

#include <sqlite3.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "HYLNTool_NotesAPI.h"

namespace hyln_test {

// Replaces every `itemName` item whose value is the TYPE_TEXT `text` with a
// zero-length value; returns how many items it changed.
inline int storeZeroLengthValue(const std::string& databaseFile, const std::string& itemName, const std::string& text)
{
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(databaseFile.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        throw std::runtime_error("cannot open " + databaseFile);
    }
    sqlite3_busy_timeout(db, 10000);
    std::vector<char> typed(2 + text.size());
    const WORD type = TYPE_TEXT;
    std::memcpy(typed.data(), &type, sizeof type);
    std::memcpy(typed.data() + 2, text.data(), text.size());
    sqlite3_stmt* update = nullptr;
    const char* sql = "UPDATE items SET value = zeroblob(0) WHERE CAST(name AS TEXT) = ? AND value = ?";
    int rc = sqlite3_prepare_v2(db, sql, -1, &update, nullptr);
    if (rc == SQLITE_OK) {
        sqlite3_bind_text(update, 1, itemName.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_blob(update, 2, typed.data(), static_cast<int>(typed.size()), SQLITE_TRANSIENT);
        rc = sqlite3_step(update);
    }
    sqlite3_finalize(update);
    int changed = sqlite3_changes(db);
    sqlite3_close(db);
    if (rc != SQLITE_DONE)
        throw std::runtime_error("cannot rewrite " + itemName + " in " + databaseFile);
    return changed;
}

} // namespace hyln_test

#endif
