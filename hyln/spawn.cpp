#include "spawn.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>

extern char** environ;

namespace hyln {

int runProgram(const std::vector<std::string>& arguments, std::string& error)
{
    if (arguments.empty()) {
        error = "no program to run";
        return -1;
    }
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t child = 0;
    int started = posix_spawn(&child, argv[0], nullptr, nullptr, argv.data(), environ);
    if (started != 0) {
        error = "cannot start " + arguments[0] + ": " + std::strerror(started);
        return -1;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            error = "cannot wait for " + arguments[0] + ": " + std::strerror(errno);
            return -1;
        }
    }
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

} // namespace hyln
