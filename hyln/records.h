// Database records as the library sends them: fields separated by 0x12, the tail
// fields (replica ID, owner) by 0x15.
#ifndef HYLN_RECORDS_H
#define HYLN_RECORDS_H

#include <string>

#include <nlohmann/json.hpp>

namespace hyln {

// The record with its separators shown as <12> and <15>.
std::string readableRecord(const std::string& record);
// The record's fields under the keys path, title, view, replica and owner (as many as it has).
nlohmann::json recordFields(const std::string& record);

} // namespace hyln

#endif
