#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "seeder.h"

namespace seed {
namespace {

bool parseCount(const char* text, unsigned long long limit, unsigned long long& value)
{
    if (text == nullptr || *text == '\0' || *text == '-')
        return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoull(text, &end, 10);
    return errno == 0 && *end == '\0' && value <= limit;
}

// Applies one "--name value" option; false when the name or value is not usable.
bool applyOption(const std::string& name, const char* value, Options& options)
{
    unsigned long long number = 0;
    if (name == "--dir")
        options.dataDir = value;
    else if (name == "--server")
        options.server = value;
    else if (name == "--domain")
        options.domain = value;
    else if (name == "--users" && parseCount(value, 1000000, number))
        options.users = number;
    else if (name == "--messages" && parseCount(value, 1000000, number))
        options.messages = number;
    else if (name == "--attachment-size" && parseCount(value, 64ull << 20, number))
        options.attachmentSize = number;
    else if (name == "--seed" && parseCount(value, 0xFFFFFFFFull, number))
        options.seed = static_cast<unsigned>(number);
    else if (name == "--extra-dirs" && parseCount(value, 100, number))
        options.extraDirs = number;
    else
        return false;
    return true;
}

} // namespace

const char* usage()
{
    return "usage: hyln-seed --dir DATA_DIR [--users N] [--messages M] [--attachment-size BYTES]\n"
           "                 [--seed S] [--server NAME] [--domain NAME] [--extra-dirs N] [--force]\n";
}

bool parseOptions(int argc, char** argv, Options& options, std::string& error)
{
    for (int i = 1; i < argc; ++i) {
        std::string name = argv[i];
        if (name == "--force") {
            options.force = true;
            continue;
        }
        const char* value = i + 1 < argc ? argv[++i] : nullptr;
        if (value == nullptr || !applyOption(name, value, options)) {
            error = "bad option or value: " + name;
            return false;
        }
    }
    if (options.dataDir.empty() || options.server.empty() || options.domain.empty()) {
        error = "--dir, --server and --domain must not be empty";
        return false;
    }
    return true;
}

} // namespace seed
