#include "seed_mail.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <set>

namespace seed {
namespace {
const size_t kUnreadEvery = 3;
}

MailWriter::MailWriter(Writer& writer, Content& content, const std::vector<std::string>& sources,
                       const std::vector<Person>& people, long long reference)
    : writer_(writer), content_(content), sources_(sources), people_(people), reference_(reference)
{
}

void MailWriter::write(const MailJob& job)
{
    auto db = writer_.newDatabase(job.path, job.owner->commonName, DBCLASS_NOTEFILE, job.replicaId);
    writer_.writeView(*db, "($All)", "", kMailColumns);
    writer_.writeView(*db, "($Inbox)", "F", kMailColumns);
    writer_.writeView(*db, "($Sent)", "", kMailColumns);
    writer_.writeView(*db, "($Drafts)", "", kMailColumns);
    writer_.writeView(*db, "($Trash)", "F", kMailColumns);
    writer_.writeView(*db, "Restore View|restore", "F", kMailColumns);
    writer_.writeView(*db, "Projects", "F", kMailColumns);
    // Every third memo, from the first on, is still unread by its owner.
    for (size_t i = 0; i < job.messages; ++i) {
        NOTEID memo = writeMemo(*db, *job.owner);
        if (i % kUnreadEvery == 0)
            db->markUnread(job.owner->canonicalName, memo);
    }
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
