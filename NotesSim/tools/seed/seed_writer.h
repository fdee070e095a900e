// Database and note writing shared by every part of the seeding tool: the
// seeded clock, the file and note counts, and view design notes.
#ifndef HYSEED_WRITER_H
#define HYSEED_WRITER_H

#include <memory>
#include <string>
#include <vector>

#include "seed_api.h"

namespace seed {

struct Totals {
    size_t files = 0;
    size_t notes = 0;
    Totals& operator+=(const Totals& other)
    {
        files += other.files;
        notes += other.notes;
        return *this;
    }
};

struct Column {
    std::string item;
    std::string title;
    WORD flags = 0;      // VIEW_COLUMN_FORMAT Flags1: sort, categorized, response-only, ...
    std::string formula; // shown instead of the item when not empty
};

// A view or folder design note: `flags` are its $Flags letters ('F' for a folder);
// `selection` is a view's selection formula.
struct ViewDesign {
    std::string title; // title and aliases joined by "|"
    std::string flags;
    std::vector<Column> columns;
    std::string selection;
    WORD tableFlags = 0;
};

extern const std::vector<Column> kMailColumns;
extern const std::vector<Column> kDirectoryColumns;
extern const std::vector<Column> kDocumentColumns;

// Every write moves the runtime's clock one second on from `clockStart`, so the
// times the runtime stamps (creation, modification) depend on the seed alone.
class Writer {
public:
    Writer(const std::string& dataDir, long long clockStart) : dataDir_(dataDir), clock_(clockStart) {}

    std::unique_ptr<Database> newDatabase(const std::string& path, const std::string& info, WORD dbClass,
                                          const TIMEDATE& replicaId);
    void save(Note& note);
    void writeView(Database& db, const std::string& title, const std::string& flags,
                   const std::vector<Column>& columns);
    // Returns the design note's ID.
    NOTEID writeView(Database& db, const ViewDesign& design);
    void fileInFolder(Database& db, NOTEID folder, const std::vector<NOTEID>& documents);
    const Totals& totals() const { return totals_; }

private:
    void stampClock();

    std::string dataDir_;
    long long clock_;
    Totals totals_;
};

} // namespace seed

#endif
