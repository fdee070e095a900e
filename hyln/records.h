// Printing database records: readable (separators shown as <12> and <15>) or JSON lines.
#ifndef HYLN_RECORDS_H
#define HYLN_RECORDS_H

#include <string>

namespace hyln {

std::string readableRecord(const std::string& record);
// {"path":...,"title":...} for short records, plus view, replica and owner for full ones.
std::string jsonRecord(const std::string& record);
std::string jsonString(const std::string& text);

} // namespace hyln

#endif
