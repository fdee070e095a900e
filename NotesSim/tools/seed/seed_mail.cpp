#include "seed_mail.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <set>

#include "view_format.h"

namespace seed {

MailWriter::MailWriter(Writer& writer, Content& content, const std::vector<std::string>& sources,
                       const std::vector<Person>& people, long long reference)
    : writer_(writer), content_(content), sources_(sources), people_(people), reference_(reference)
{
}

namespace {

const size_t kUnreadEvery = 3;
const char* const kMailSelection = "Form = \"Memo\" | Form = \"Reply\"";

// Categorized by sender, newest first within a sender; replies show who answered.
ViewDesign bySender()
{
    using namespace sim::viewformat;
    std::vector<Column> columns = {{"From", "Who", kColumnSort | kColumnCategory, ""},
                                   {"$Reply", "", kColumnResponse, "\"Reply from \" + From"},
                                   {"PostedDate", "Date", kColumnSort | kColumnDescending, ""},
                                   {"Subject", "Subject", 0, ""},
                                   {"$Size", "Size", 0, "@DocLength"}};
    return ViewDesign{"By Sender|bysender", "", columns, kMailSelection, 0};
}

ViewDesign folder(const std::string& title)
{
    return ViewDesign{title, "F", kMailColumns, "", 0};
}

} // namespace

// The design of a mailbox: the Inbox folder, the sent, draft and all-documents views,
// a categorized view, and user folders with subfolders; every memo is in the Inbox
// and some are filed in the user folders as well.
void MailWriter::write(const MailJob& job)
{
    auto db = writer_.newDatabase(job.path, job.owner->commonName, DBCLASS_NOTEFILE, job.replicaId);
    writer_.writeView(*db, ViewDesign{"($All)", "", kMailColumns, kMailSelection, 0});
    NOTEID inbox = writer_.writeView(*db, folder("($Inbox)|$Inbox"));
    writer_.writeView(*db, ViewDesign{"($Sent)", "", kMailColumns,
                                      "Form = \"Memo\" & From = \"" + job.owner->canonicalName + "\"", 0});
    writer_.writeView(*db, ViewDesign{"($Drafts)", "", kMailColumns, "Form = \"Memo\" & @Text(PostedDate) = \"\"", 0});
    writer_.writeView(*db, bySender());
    writer_.writeView(*db, folder("($Trash)"));
    writer_.writeView(*db, folder("Restore View|restore"));
    std::vector<NOTEID> userFolders;
    for (const char* title : {"Projects", "Projects\\Alpha", "Projects\\Alpha\\Old", "Customers"})
        userFolders.push_back(writer_.writeView(*db, folder(title)));
    // Every third memo, from the first on, is still unread by its owner.
    std::vector<NOTEID> memos;
    for (size_t i = 0; i < job.messages; ++i) {
        memos.push_back(writeMemo(*db, *job.owner));
        if (i % kUnreadEvery == 0)
            db->markUnread(job.owner->canonicalName, memos.back());
    }
    if (!memos.empty())
        writer_.fileInFolder(*db, inbox, memos);
    fileMemos(*db, userFolders, memos);
}

// About a third of the memos go to one of the user folders too.
void MailWriter::fileMemos(Database& db, const std::vector<NOTEID>& folders, const std::vector<NOTEID>& memos)
{
    std::vector<std::vector<NOTEID>> filed(folders.size());
    for (NOTEID memo : memos)
        if (content_.chance(0.35))
            filed[static_cast<size_t>(content_.between(0, static_cast<int>(folders.size()) - 1))].push_back(memo);
    for (size_t i = 0; i < folders.size(); ++i)
        if (!filed[i].empty())
            writer_.fileInFolder(db, folders[i], filed[i]);
}

std::string MailWriter::correspondent()
{
    if (people_.empty() || content_.chance(0.15))
        return "CN=Outside Contact/O=Partner";
    return content_.pick(people_).canonicalName;
}

NOTEID MailWriter::writeMemo(Database& db, const Person& owner)
{
    Note memo(db);
    memo.text("Form", "Memo");
    memo.text("Subject", content_.subject());
    memo.text("From", correspondent());
    std::vector<std::string> sendTo = {owner.canonicalName};
    if (content_.chance(0.3))
        sendTo.push_back(correspondent());
    memo.textList("SendTo", sendTo);
    std::vector<std::string> copyTo;
    for (int i = content_.between(0, 2); i > 0; --i)
        copyTo.push_back(correspondent());
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
    writer_.save(memo);
    return memo.id();
}

// The prepared files get a modification time shortly before the memo was
// posted before they are attached; each attachment has a name of its own.
void MailWriter::writeAttachments(Note& memo, long long posted)
{
    std::set<std::string> used;
    for (int i = content_.between(1, 3); i > 0; --i) {
        const std::string& source = content_.pick(sources_);
        long long modified = posted - content_.between(60, 30 * 86400);
        struct timespec times[2] = {{modified, 0}, {modified, 0}};
        utimensat(AT_FDCWD, source.c_str(), times, 0);
        std::string name = content_.attachmentName();
        while (!used.insert(name).second)
            name = "copy-" + name;
        memo.attach(source, name);
    }
}

} // namespace seed
