#include "support/domino_fixture.h"

#include <cstring>
#include <stdexcept>

namespace hyln_test {
namespace {

void check(STATUS status, const char* what)
{
    if (status != NOERROR)
        throw std::runtime_error(std::string(what) + " failed with status " + std::to_string(status));
}

DBHANDLE openDatabase(const std::string& path)
{
    DBHANDLE handle = NULLHANDLE;
    check(HY_NSFDbOpen(path.c_str(), &handle), "NSFDbOpen");
    return handle;
}

void appendItem(NOTEHANDLE note, const char* name, WORD type, const std::string& value)
{
    check(HY_NSFItemAppend(note, ITEM_SUMMARY, name, static_cast<WORD>(std::strlen(name)), type, value.data(),
                           static_cast<DWORD>(value.size())),
          "NSFItemAppend");
}

void appendMailFile(NOTEHANDLE note, const Person& person)
{
    switch (person.form) {
    case MailFileForm::Text:
        appendItem(note, "MailFile", TYPE_TEXT, person.mailFile);
        break;
    case MailFileForm::TextList:
        appendItem(note, "MailFile", TYPE_TEXT_LIST, textListValue({person.mailFile, person.mailFile + ".bak"}));
        break;
    case MailFileForm::Number: {
        double number = 42;
        appendItem(note, "MailFile", TYPE_NUMBER, std::string(reinterpret_cast<const char*>(&number), sizeof number));
        break;
    }
    case MailFileForm::Absent:
        break;
    }
}

} // namespace

std::string textListValue(const std::vector<std::string>& texts)
{
    std::string value;
    WORD count = static_cast<WORD>(texts.size());
    value.append(reinterpret_cast<const char*>(&count), sizeof count);
    for (const std::string& text : texts) {
        WORD length = static_cast<WORD>(text.size());
        value.append(reinterpret_cast<const char*>(&length), sizeof length);
    }
    for (const std::string& text : texts)
        value += text;
    return value;
}

void createDatabase(const std::string& path, const std::string& title, DWORD replicaHigh, DWORD replicaLow)
{
    check(HY_NSFDbCreate(path.c_str(), DBCLASS_NOTEFILE, TRUE), "NSFDbCreate");
    DBHANDLE handle = openDatabase(path);
    char info[NSF_INFO_SIZE] = {0};
    std::strncpy(info, title.c_str(), sizeof info - 1);
    check(HY_NSFDbInfoSet(handle, info), "NSFDbInfoSet");
    DBREPLICAINFO replica{};
    check(HY_NSFDbReplicaInfoGet(handle, &replica), "NSFDbReplicaInfoGet");
    replica.ID.Innards[1] = replicaHigh;
    replica.ID.Innards[0] = replicaLow;
    check(HY_NSFDbReplicaInfoSet(handle, &replica), "NSFDbReplicaInfoSet");
    check(HY_NSFDbClose(handle), "NSFDbClose");
}

void addPeople(const std::vector<Person>& people)
{
    DBHANDLE names = NULLHANDLE;
    if (HY_NSFDbOpen("names.nsf", &names) != NOERROR) {
        createDatabase("names.nsf", "Directory", 0x11111111, 0x22222222);
        names = openDatabase("names.nsf");
    }
    for (const Person& person : people) {
        NOTEHANDLE note = NULLHANDLE;
        check(HY_NSFNoteCreate(names, &note), "NSFNoteCreate");
        appendItem(note, "Form", TYPE_TEXT, "Person");
        appendItem(note, "FullName", TYPE_TEXT_LIST, textListValue(person.fullNames));
        appendMailFile(note, person);
        check(HY_NSFNoteUpdate(note, 0), "NSFNoteUpdate");
        check(HY_NSFNoteClose(note), "NSFNoteClose");
    }
    check(HY_NSFDbClose(names), "NSFDbClose");
}

NOTEID addView(const std::string& databasePath, const std::string& title)
{
    DBHANDLE database = openDatabase(databasePath);
    NOTEHANDLE note = NULLHANDLE;
    check(HY_NSFNoteCreate(database, &note), "NSFNoteCreate");
    WORD viewClass = NOTE_CLASS_VIEW;
    HY_NSFNoteSetInfo(note, _NOTE_CLASS, &viewClass);
    if (!title.empty())
        check(HY_NSFItemSetText(note, "$TITLE", title.c_str(), MAXWORD), "NSFItemSetText");
    check(HY_NSFNoteUpdate(note, 0), "NSFNoteUpdate");
    NOTEID id = 0;
    HY_NSFNoteGetInfo(note, _NOTE_ID, &id);
    check(HY_NSFNoteClose(note), "NSFNoteClose");
    check(HY_NSFDbClose(database), "NSFDbClose");
    return id;
}

} // namespace hyln_test
