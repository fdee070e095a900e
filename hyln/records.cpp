#include "records.h"

#include <cstdio>
#include <vector>

namespace hyln {
namespace {

const char kFieldSeparator = 0x12;
const char kTailSeparator = 0x15;

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

std::string jsonString(const std::string& text)
{
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string jsonRecord(const std::string& record)
{
    static const char* const names[] = {"path", "title", "view", "replica", "owner"};
    std::vector<std::string> parts = fields(record);
    std::string json = "{";
    for (size_t i = 0; i < parts.size() && i < 5; ++i)
        json += (i ? "," : "") + jsonString(names[i]) + ":" + jsonString(parts[i]);
    return json + "}";
}

} // namespace hyln
