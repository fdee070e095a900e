#include "seed_writer.h"

#include <filesystem>

#include "HySimControl.h"

namespace seed {
namespace {

void appendWord(std::vector<char>& out, WORD value)
{
    out.push_back(static_cast<char>(value & 0xFF));
    out.push_back(static_cast<char>(value >> 8));
}

void appendDword(std::vector<char>& out, DWORD value)
{
    appendWord(out, static_cast<WORD>(value & 0xFFFF));
    appendWord(out, static_cast<WORD>(value >> 16));
}

// A table-style $ViewFormat in canonical form: table format, one 32-byte column
// descriptor per column, then each column's item name and title.
std::vector<char> viewFormat(const std::vector<Column>& columns)
{
    constexpr WORD kColumnSignature = 0x4356;
    constexpr WORD kSortColumn = 0x0001;
    std::vector<char> out = {1, 0}; // version 1, table style
    appendWord(out, static_cast<WORD>(columns.size()));
    appendWord(out, 0); // item sequence number
    appendWord(out, 0); // flags
    appendWord(out, 0); // flags 2
    for (size_t i = 0; i < columns.size(); ++i) {
        appendWord(out, kColumnSignature);
        appendWord(out, i == 0 ? kSortColumn : 0);
        appendWord(out, static_cast<WORD>(columns[i].item.size()));
        appendWord(out, static_cast<WORD>(columns[i].title.size()));
        appendWord(out, 0);  // formula size
        appendWord(out, 0);  // constant value size
        appendWord(out, 80); // display width, 1/8 characters
        appendDword(out, 0); // font
        appendWord(out, 0);  // flags 2
        appendDword(out, 0); // number format
        appendDword(out, 0); // time format
        appendWord(out, 0);  // data type
        appendWord(out, 0);  // list separator
    }
    for (const auto& column : columns) {
        out.insert(out.end(), column.item.begin(), column.item.end());
        out.insert(out.end(), column.title.begin(), column.title.end());
    }
    return out;
}

} // namespace

const std::vector<Column> kMailColumns = {{"From", "Who"}, {"Subject", "Subject"}, {"PostedDate", "Date"}};
const std::vector<Column> kDirectoryColumns = {{"FullName", "Name"}, {"MailFile", "Mail file"}};
const std::vector<Column> kDocumentColumns = {{"Subject", "Topic"}, {"From", "Author"}};

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
    Note view(db, NOTE_CLASS_VIEW);
    view.text("$TITLE", title);
    view.text("$Flags", flags);
    view.raw("$ViewFormat", ITEM_SUMMARY, TYPE_VIEW_FORMAT, viewFormat(columns));
    save(view);
}

} // namespace seed
