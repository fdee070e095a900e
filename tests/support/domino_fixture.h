// Builds databases, person documents and view notes through the C API itself,
// so tests control exactly what discovery meets.
#ifndef HYLN_DOMINO_FIXTURE_H
#define HYLN_DOMINO_FIXTURE_H

#include <string>
#include <vector>

#include "HYLNTool.h"

namespace hyln_test {

// Creates `path` (relative to the data directory) with a title and replica ID words.
void createDatabase(const std::string& path, const std::string& title, DWORD replicaHigh = 0x8525721B,
                    DWORD replicaLow = 0x0052A1C3);

// A person document in names.nsf. MailFile is written in the form asked for.
enum class MailFileForm { Text, TextList, Number, Absent };
struct Person {
    std::vector<std::string> fullNames; // FullName text list, canonical name first
    std::string mailFile;
    MailFileForm form = MailFileForm::Text;
};
void addPeople(const std::vector<Person>& people);

// A view design note with the given $TITLE (no item when empty); returns its note ID.
NOTEID addView(const std::string& databasePath, const std::string& title);

// Raw item values in the API's layout (without the type word).
std::string textListValue(const std::vector<std::string>& texts);

} // namespace hyln_test

#endif
