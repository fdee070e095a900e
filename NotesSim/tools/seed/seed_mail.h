// Mail files: the views of a mail database and its memos.
#ifndef HYSEED_MAIL_H
#define HYSEED_MAIL_H

#include <string>
#include <vector>

#include "seed_content.h"
#include "seed_writer.h"

namespace seed {

struct MailJob {
    size_t index = 0; // position in the plan: chooses the content stream and the clock
    const Person* owner = nullptr;
    std::string path;
    TIMEDATE replicaId{};
    size_t messages = 0;
};

class MailWriter {
public:
    // `sources` are prepared files the attachments are read from; `reference`
    // is the seeded "now" that every memo predates.
    MailWriter(Writer& writer, Content& content, const std::vector<std::string>& sources,
               const std::vector<Person>& people, long long reference);
    void write(const MailJob& job);

private:
    std::string correspondent();
    NOTEID writeMemo(Database& db, const Person& owner);
    void fileMemos(Database& db, const std::vector<NOTEID>& folders, const std::vector<NOTEID>& memos);
    void writeAttachments(Note& memo, long long posted);

    Writer& writer_;
    Content& content_;
    const std::vector<std::string>& sources_;
    const std::vector<Person>& people_;
    long long reference_;
};

} // namespace seed

#endif
