#include "paths.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>

#include "environment.h"
#include "sim_core.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

const char kNetworkSeparator[] = "!!";

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// "CN=Srv/O=Org" and "Srv/Org" name the same server.
std::string abbreviatedName(const std::string& name)
{
    std::string result;
    size_t start = 0;
    for (;;) {
        size_t slash = name.find('/', start);
        std::string part = name.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        size_t equals = part.find('=');
        result += equals == std::string::npos ? part : part.substr(equals + 1);
        if (slash == std::string::npos)
            return lowered(result);
        result += '/';
        start = slash + 1;
    }
}

bool hasExtension(const std::string& path)
{
    size_t slash = path.rfind('/');
    size_t dot = path.rfind('.');
    return dot != std::string::npos && (slash == std::string::npos || dot > slash);
}

bool exists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

std::string withoutTrailingSlash(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

bool leavesBase(const fs::path& path, const fs::path& base)
{
    fs::path relative = path.lexically_relative(base);
    return relative.empty() || *relative.begin() == "..";
}

} // namespace

bool isLocalServer(const std::string& server)
{
    if (server.empty())
        return true;
    std::string local = localServerName();
    return !local.empty() && abbreviatedName(server) == abbreviatedName(local);
}

STATUS resolvePathName(const char* pathName, std::string& absolute)
{
    if (!runtimeInitialized())
        return STS_NOT_INITIALIZED;
    std::string name = pathName != nullptr ? pathName : "";
    std::replace(name.begin(), name.end(), '\\', '/');
    size_t separator = name.find(kNetworkSeparator);
    if (separator != std::string::npos) {
        if (!isLocalServer(name.substr(0, separator)))
            return STS_SERVER_NOT_RESPONDING;
        name = name.substr(separator + std::strlen(kNetworkSeparator));
    }
    fs::path data(dataDirectory());
    if (!name.empty() && name[0] == '/') {
        absolute = withoutTrailingSlash(fs::path(name).lexically_normal().string());
        return NOERROR;
    }
    fs::path joined = (data / name).lexically_normal();
    if (leavesBase(joined, data))
        return STS_PATH_OUTSIDE;
    absolute = withoutTrailingSlash(joined.string());
    return NOERROR;
}

std::string existingDatabaseFile(const std::string& absolute)
{
    if (exists(absolute) || hasExtension(absolute))
        return absolute;
    std::string withNsf = absolute + ".nsf";
    return exists(withNsf) ? withNsf : absolute;
}

std::string newDatabaseFile(const std::string& absolute)
{
    return hasExtension(absolute) ? absolute : absolute + ".nsf";
}

std::string canonicalPathOf(const std::string& absolute)
{
    fs::path data(dataDirectory());
    fs::path path(absolute);
    if (leavesBase(path, data))
        return absolute;
    std::string relative = path.lexically_relative(data).string();
    return relative == "." ? std::string() : relative;
}

} // namespace sim

// The simulation has a single network port, so the port name does not change the path.
STATUS impl::OSPathNetConstruct(const char* PortName, const char* ServerName, const char* FileName, char* retPathName)
{
    (void)PortName;
    if (retPathName == nullptr)
        return NOERROR;
    std::string path = FileName != nullptr ? FileName : "";
    if (ServerName != nullptr && ServerName[0] != '\0')
        path = std::string(ServerName) + sim::kNetworkSeparator + path;
    size_t count = std::min<size_t>(path.size(), MAXPATH - 1);
    std::memcpy(retPathName, path.data(), count);
    retPathName[count] = '\0';
    return NOERROR;
}
