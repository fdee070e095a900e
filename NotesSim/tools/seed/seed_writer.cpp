#include "seed_writer.h"

#include <filesystem>

#include "view_format.h"

#include "HySimControl.h"

namespace seed {
namespace {

std::vector<char> viewFormat(const ViewDesign& design)
{
    sim::viewformat::Format format;
    format.flags = design.tableFlags;
    for (const Column& column : design.columns) {
        sim::viewformat::Column out;
        out.flags1 = column.flags;
        out.itemName = column.item;
        out.title = column.title;
        if (!column.formula.empty())
            out.formula = compileFormula(column.formula);
        format.columns.push_back(out);
    }
    return sim::viewformat::encode(format);
}

} // namespace

const std::vector<Column> kMailColumns = {
    {"From", "Who", 0, ""}, {"Subject", "Subject", 0, ""}, {"PostedDate", "Date", 0, ""}};
const std::vector<Column> kDirectoryColumns = {{"FullName", "Name", 0, ""}, {"MailFile", "Mail file", 0, ""}};
const std::vector<Column> kDocumentColumns = {{"Subject", "Topic", 0, ""}, {"From", "Author", 0, ""}};

void Writer::stampClock()
{
    HySimSetClock(clock_++, 0);
}

std::unique_ptr<Database> Writer::newDatabase(const std::string& path, const std::string& info, WORD dbClass,
                                              const TIMEDATE& replicaId)
{
    std::filesystem::create_directories(std::filesystem::path(dataDir_) / std::filesystem::path(path).parent_path());
    stampClock();
    auto db = std::make_unique<Database>(path, dbClass);
    db->setInfo(info);
    db->setReplicaId(replicaId);
    ++totals_.files;
    return db;
}

void Writer::save(Note& note)
{
    stampClock();
    note.update();
    ++totals_.notes;
}

void Writer::writeView(Database& db, const std::string& title, const std::string& flags,
                       const std::vector<Column>& columns)
{
    std::vector<Column> sorted = columns;
    sorted.front().flags |= sim::viewformat::kColumnSort;
    writeView(db, ViewDesign{title, flags, sorted, "", 0});
}

NOTEID Writer::writeView(Database& db, const ViewDesign& design)
{
    Note view(db, NOTE_CLASS_VIEW);
    view.text("$TITLE", design.title);
    view.text("$Flags", design.flags);
    view.raw("$ViewFormat", ITEM_SUMMARY, TYPE_VIEW_FORMAT, viewFormat(design));
    if (!design.selection.empty())
        view.raw("$FORMULA", ITEM_SUMMARY, TYPE_FORMULA, compileFormula(design.selection));
    save(view);
    return view.id();
}

void Writer::fileInFolder(Database& db, NOTEID folder, const std::vector<NOTEID>& documents)
{
    stampClock();
    db.fileInFolder(folder, documents);
}

} // namespace seed
