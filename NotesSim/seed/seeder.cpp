// What a seeded data directory holds: names.nsf with person documents (and the
// odd entries mailbox discovery has to cope with), one mail file per person
// with views and memos, application databases and a template under apps/, a
// router mailbox, and, on request, extra scan directories.
#include "seeder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

#include "HySimControl.h"

namespace fs = std::filesystem;

namespace seed {
namespace {

constexpr long long kSeededEpoch = 1700000000; // 2023-11-14, the base of every seeded time
constexpr size_t kAttachmentSources = 4;

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

const std::vector<Column> kMailColumns = {{"From", "Who"}, {"Subject", "Subject"}, {"PostedDate", "Date"}};
const std::vector<Column> kDirectoryColumns = {{"FullName", "Name"}, {"MailFile", "Mail file"}};
const std::vector<Column> kDocumentColumns = {{"Subject", "Topic"}, {"From", "Author"}};

// "O=Org" of a canonical server name, else the domain.
std::string organisationOf(const std::string& server, const std::string& domain)
{
    size_t at = server.find("O=");
    while (at != std::string::npos && at > 0 && server[at - 1] != '/')
        at = server.find("O=", at + 1);
    if (at == std::string::npos)
        return domain;
    return server.substr(at + 2, server.find('/', at) - at - 2);
}

void personItems(Note& note, const Person& person, const std::string& server)
{
    note.text("Form", "Person");
    note.text("Type", "Person");
    note.text("FirstName", person.firstName);
    note.text("LastName", person.lastName);
    note.textList("FullName", {person.canonicalName, person.commonName});
    note.text("ShortName", person.shortName);
    note.text("InternetAddress", person.internetAddress);
    note.text("MailServer", server);
}

} // namespace

Seeder::Seeder(const Options& options, const std::string& scratchDir)
    : options_(options),
      content_(options.seed),
      org_(organisationOf(options.server, options.domain)),
      scratchDir_(scratchDir),
      reference_(kSeededEpoch + static_cast<long long>(options.seed % 1000) * 86400)
{
}

Totals Seeder::run()
{
    prepareAttachmentSources();
    std::vector<Person> people = content_.people(options_.users, org_, options_.domain);
    writeDirectory(people);
    TIMEDATE firstReplicaId{};
    for (size_t i = 0; i < people.size(); ++i) {
        TIMEDATE replicaId = nextReplicaId();
        if (i == 0)
            firstReplicaId = replicaId;
        writeMailFile(people[i], people[i].mailPath, replicaId, people, options_.messages);
    }
    // A left-over copy of the first mail file, a replica of it under another name.
    if (!people.empty())
        writeMailFile(people[0], people[0].mailPath + ".bak", firstReplicaId, people, std::min<size_t>(options_.messages, 5));
    writeApplications();
    writeExtraDirectories();
    return totals_;
}

void Seeder::prepareAttachmentSources()
{
    for (size_t i = 0; i < kAttachmentSources; ++i) {
        std::string path = scratchDir_ + "/source" + std::to_string(i);
        std::vector<char> data = content_.bytes(options_.attachmentSize);
        std::ofstream(path, std::ios::binary).write(data.data(), static_cast<std::streamsize>(data.size()));
        attachmentSources_.push_back(path);
    }
}

void Seeder::stampClock()
{
    HySimSetClock(reference_ + clockTick_++, 0);
}

TIMEDATE Seeder::nextReplicaId()
{
    TIMEDATE id;
    id.Innards[0] = static_cast<DWORD>(content_.between(0, 0x7FFFFFFF));
    id.Innards[1] = static_cast<DWORD>(content_.between(0, 0x7FFFFFFF)) | 0x80000000u;
    return id;
}

std::unique_ptr<Database> Seeder::newDatabase(const std::string& path, const std::string& info, WORD dbClass,
                                              const TIMEDATE& replicaId)
{
    fs::create_directories(fs::path(options_.dataDir) / fs::path(path).parent_path());
    stampClock();
    auto db = std::make_unique<Database>(path, dbClass);
    db->setInfo(info);
    db->setReplicaId(replicaId);
    ++totals_.files;
    return db;
}

void Seeder::save(Note& note)
{
    stampClock();
    note.update();
    ++totals_.notes;
}

void Seeder::writeView(Database& db, const std::string& title, const std::string& flags,
                       const std::vector<Column>& columns)
{
    Note view(db, NOTE_CLASS_VIEW);
    view.text("$TITLE", title);
    view.text("$Flags", flags);
    view.raw("$ViewFormat", ITEM_SUMMARY, TYPE_VIEW_FORMAT, viewFormat(columns));
    save(view);
}

void Seeder::writeDirectory(const std::vector<Person>& people)
{
    auto names = newDatabase("names.nsf", org_ + "'s Directory", DBCLASS_NOTEFILE, nextReplicaId());
    writeView(*names, "($People)|People", "", kDirectoryColumns);
    writeView(*names, "($Users)", "", kDirectoryColumns);
    for (const auto& person : people) {
        Note note(*names);
        personItems(note, person, options_.server);
        note.text("MailFile", person.mailFile);
        save(note);
    }
    writeOddPeople(*names, people);
    writeServerAndGroup(*names, people);
}

// The entries mailbox discovery must skip or filter: no mail file, a text-list
// or numeric mail file, a mail file shared with another person, a path on
// another machine, and the left-over copy of a mail file.
void Seeder::writeOddPeople(Database& names, const std::vector<Person>& people)
{
    struct Odd {
        const char* first;
        const char* last;
    };
    const Odd odd[] = {{"Nadia", "Nomail"}, {"Lars", "Listmail"}, {"Nils", "Numeric"},
                       {"Erik", "External"}, {"Sven", "Shared"},  {"Tina", "Twin"}};
    for (size_t i = 0; i < sizeof odd / sizeof odd[0]; ++i) {
        bool needsMailFileOfOthers = i >= 4;
        if (needsMailFileOfOthers && people.empty())
            break;
        Person person = content_.extraPerson(odd[i].first, odd[i].last, org_, options_.domain);
        Note note(names);
        personItems(note, person, options_.server);
        switch (i) {
        case 1: note.textList("MailFile", {person.mailPath, "mail/" + person.shortName + "-old.nsf"}); break;
        case 2: note.number("MailFile", 42); break;
        case 3: note.text("MailFile", "C:\\mail\\ext.nsf"); break;
        case 4: note.text("MailFile", people[0].mailFile); break;
        case 5: note.text("MailFile", people[0].mailPath + ".bak"); break;
        default: break;
        }
        save(note);
    }
}

void Seeder::writeServerAndGroup(Database& names, const std::vector<Person>& people)
{
    Note server(names);
    server.text("Form", "Server");
    server.text("Type", "Server");
    server.text("ServerName", options_.server);
    server.text("Domain", options_.domain);
    save(server);

    Note group(names);
    group.text("Form", "Group");
    group.text("Type", "Group");
    group.text("ListName", "LocalDomainAdmins");
    std::vector<std::string> members;
    for (size_t i = 0; i < people.size() && i < 3; ++i)
        members.push_back(people[i].canonicalName);
    group.textList("Members", members);
    save(group);
}

void Seeder::writeMailFile(const Person& owner, const std::string& path, const TIMEDATE& replicaId,
                           const std::vector<Person>& people, size_t messages)
{
    auto db = newDatabase(path, owner.commonName, DBCLASS_NOTEFILE, replicaId);
    writeView(*db, "($All)", "", kMailColumns);
    writeView(*db, "($Inbox)", "F", kMailColumns);
    writeView(*db, "($Sent)", "", kMailColumns);
    writeView(*db, "($Drafts)", "", kMailColumns);
    writeView(*db, "($Trash)", "F", kMailColumns);
    writeView(*db, "Restore View|restore", "F", kMailColumns);
    writeView(*db, "Projects", "F", kMailColumns);
    for (size_t i = 0; i < messages; ++i)
        writeMemo(*db, owner, people);
}

std::string Seeder::correspondent(const std::vector<Person>& people)
{
    if (people.empty() || content_.chance(0.15))
        return "CN=Outside Contact/O=Partner";
    return content_.pick(people).canonicalName;
}

void Seeder::writeMemo(Database& db, const Person& owner, const std::vector<Person>& people)
{
    Note memo(db);
    memo.text("Form", "Memo");
    memo.text("Subject", content_.subject());
    memo.text("From", correspondent(people));
    std::vector<std::string> sendTo = {owner.canonicalName};
    if (content_.chance(0.3))
        sendTo.push_back(correspondent(people));
    memo.textList("SendTo", sendTo);
    std::vector<std::string> copyTo;
    for (int i = content_.between(0, 2); i > 0; --i)
        copyTo.push_back(correspondent(people));
    if (copyTo.empty())
        memo.text("CopyTo", "");
    else
        memo.textList("CopyTo", copyTo);
    long long posted = content_.momentBefore(reference_);
    memo.time("PostedDate", timedateOfUnix(posted));
    memo.time("DeliveredDate", timedateOfUnix(posted + content_.between(1, 600)));
    std::string body = content_.body();
    memo.raw("Body", 0, TYPE_TEXT, std::vector<char>(body.begin(), body.end()));
    if (content_.chance(0.2))
        writeAttachments(memo, posted);
    if (content_.chance(0.05)) {
        memo.raw("$Seal", ITEM_SEAL, TYPE_SEAL, content_.bytes(48));
        memo.raw("$SealData", ITEM_SEAL, TYPE_SEALDATA, content_.bytes(96));
    }
    save(memo);
}

// Attachments come from a few prepared files whose modification time is set
// to shortly before the memo was posted; each gets a name of its own.
void Seeder::writeAttachments(Note& memo, long long posted)
{
    std::set<std::string> used;
    for (int i = content_.between(1, 3); i > 0; --i) {
        const std::string& source = content_.pick(attachmentSources_);
        long long modified = posted - content_.between(60, 30 * 86400);
        struct timespec times[2] = {{modified, 0}, {modified, 0}};
        utimensat(AT_FDCWD, source.c_str(), times, 0);
        std::string name = content_.attachmentName();
        while (!used.insert(name).second)
            name = "copy-" + name;
        memo.attach(source, name);
    }
}

void Seeder::writeApplication(const std::string& path, const std::string& info, WORD dbClass, size_t documents)
{
    auto db = newDatabase(path, info, dbClass, nextReplicaId());
    writeView(*db, "($All)", "", kDocumentColumns);
    writeView(*db, "By Category", "", kDocumentColumns);
    for (size_t i = 0; i < documents; ++i) {
        Note note(*db);
        note.text("Form", "Topic");
        note.text("Subject", content_.subject());
        note.text("From", "CN=Outside Contact/O=Partner");
        note.time("Created", timedateOfUnix(content_.momentBefore(reference_)));
        std::string body = content_.body();
        note.raw("Body", 0, TYPE_TEXT, std::vector<char>(body.begin(), body.end()));
        save(note);
    }
}

void Seeder::writeApplications()
{
    writeApplication("apps/discussion.ntf", "Discussion Template\n#1StdDiscussion", DBCLASS_TEMPLATEFILE, 0);
    writeApplication("apps/discussion.nsf", "Team Discussion\n#2StdDiscussion", DBCLASS_NOTEFILE, 12);
    writeApplication("apps/projects.nsf", "Project Tracker", DBCLASS_NOTEFILE, 8);
    writeApplication("apps/archive/projects-2019.nsf", "Project Tracker 2019", DBCLASS_NOTEFILE, 5);
    writeApplication("mail.box", "Outgoing Mail", DBCLASS_NOTEFILE, 0);
}

void Seeder::writeExtraDirectories()
{
    for (size_t k = 1; k <= options_.extraDirs; ++k) {
        std::string dir = "extra" + std::to_string(k);
        writeApplication(dir + "/archive-a.nsf", "Archive " + std::to_string(k) + "A", DBCLASS_NOTEFILE, 3);
        writeApplication(dir + "/archive-b.nsf", "Archive " + std::to_string(k) + "B", DBCLASS_NOTEFILE, 3);
        writeApplication(dir + "/old/archive-c.nsf", "Archive " + std::to_string(k) + "C", DBCLASS_NOTEFILE, 2);
    }
}

} // namespace seed
