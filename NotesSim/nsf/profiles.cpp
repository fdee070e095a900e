// NSFProfileEnum: profile documents are the notes whose $Name text reads
// "$profile_" + the profile name's length in three digits + the name + "_" + the user
// name (empty for a database-wide profile).
#include <cctype>
#include <cstring>

#include "sim_core.h"
#include "storage.h"

namespace sim {
namespace {

const char kProfilePrefix[] = "$profile_";
const size_t kPrefixLength = sizeof kProfilePrefix - 1;
const size_t kLengthDigits = 3;

struct Profile {
    NOTEID id = 0;
    std::string name;
    std::string user;
};

bool sameTextIgnoringCase(const std::string& a, const char* b, size_t length)
{
    if (a.size() != length)
        return false;
    for (size_t i = 0; i < length; ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

// The text of a TYPE_TEXT value (type word first); false for any other type.
bool textOf(const std::vector<char>& value, std::string& text)
{
    WORD type = 0;
    if (value.size() < sizeof type)
        return false;
    std::memcpy(&type, value.data(), sizeof type);
    if (type != TYPE_TEXT)
        return false;
    text.assign(value.begin() + sizeof type, value.end());
    return true;
}

bool parseProfileName(const std::string& text, Profile& profile)
{
    if (text.size() < kPrefixLength + kLengthDigits ||
        !sameTextIgnoringCase(text.substr(0, kPrefixLength), kProfilePrefix, kPrefixLength))
        return false;
    size_t length = 0;
    for (size_t i = kPrefixLength; i < kPrefixLength + kLengthDigits; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i])))
            return false;
        length = length * 10 + static_cast<size_t>(text[i] - '0');
    }
    size_t nameStart = kPrefixLength + kLengthDigits;
    size_t separator = nameStart + length;
    if (separator >= text.size() || text[separator] != '_')
        return false;
    profile.name = text.substr(nameStart, length);
    profile.user = text.substr(separator + 1);
    return true;
}

STATUS profilesOf(Storage& storage, std::vector<Profile>& out)
{
    std::vector<std::pair<NOTEID, std::vector<char>>> names;
    STATUS status = storage.itemsNamed("$Name", names);
    for (const auto& named : names) {
        Profile profile;
        std::string text;
        profile.id = named.first;
        if (textOf(named.second, text) && parseProfileName(text, profile))
            out.push_back(profile);
    }
    return status;
}

} // namespace
} // namespace sim

STATUS impl::NSFProfileEnum(DBHANDLE hDB, const char* ProfileName, WORD ProfileNameLength,
                            NSFPROFILEENUMPROC Callback, void* CallbackCtx, DWORD Flags)
{
    (void)Flags; // no flags are defined
    if (Callback == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::Storage> storage;
    std::vector<sim::Profile> profiles;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status == NOERROR)
        status = sim::profilesOf(*storage, profiles);
    if (status != NOERROR)
        return status;
    bool all = ProfileName == nullptr || ProfileNameLength == 0;
    for (sim::Profile& profile : profiles) {
        if (!all && !sim::sameTextIgnoringCase(profile.name, ProfileName, ProfileNameLength))
            continue;
        status = Callback(hDB, CallbackCtx, profile.name.data(), static_cast<WORD>(profile.name.size()),
                          profile.user.data(), static_cast<WORD>(profile.user.size()), profile.id);
        if (status != NOERROR)
            return status;
    }
    return NOERROR;
}
