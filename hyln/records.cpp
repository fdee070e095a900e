#include "records.h"

#include <vector>

namespace hyln {
namespace {

const char kFieldSeparator = 0x12;
const char kTailSeparator = 0x15;
const char* const kFieldNames[] = {"path", "title", "view", "replica", "owner"};

std::vector<std::string> fields(const std::string& record)
{
    std::vector<std::string> parts(1);
    for (char c : record) {
        if (c == kFieldSeparator || c == kTailSeparator)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

} // namespace

std::string readableRecord(const std::string& record)
{
    std::string text;
    for (char c : record) {
        if (c == kFieldSeparator)
            text += "<12>";
        else if (c == kTailSeparator)
            text += "<15>";
        else
            text += c;
    }
    return text;
}

nlohmann::json recordFields(const std::string& record)
{
    std::vector<std::string> parts = fields(record);
    nlohmann::json object = nlohmann::json::object();
    for (size_t i = 0; i < parts.size() && i < std::size(kFieldNames); ++i)
        object[kFieldNames[i]] = parts[i];
    return object;
}

} // namespace hyln
