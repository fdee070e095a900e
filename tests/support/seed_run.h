// Runs the seeding tool that the build put next to the tests, for the library's and
// the runtime's tests alike.
#ifndef HYLN_SEED_RUN_H
#define HYLN_SEED_RUN_H

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace seed_run {

struct SeedRun {
    int exitCode = -1;
    std::string output; // stdout and stderr
};

// Runs the seeder with `arguments` split at blanks (never through a shell).
inline SeedRun runSeeder(const std::string& arguments)
{
    SeedRun run;
    std::vector<std::string> words{HYLN_TEST_SEEDER};
    std::istringstream split(arguments);
    for (std::string word; split >> word;)
        words.push_back(word);
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0)
        return run;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
    pid_t child = 0;
    int started = posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeEnds[1]);
    char buffer[512];
    for (ssize_t got; started == 0 && (got = read(pipeEnds[0], buffer, sizeof buffer)) > 0;)
        run.output.append(buffer, static_cast<size_t>(got));
    close(pipeEnds[0]);
    int status = 0;
    if (started == 0 && waitpid(child, &status, 0) == child && WIFEXITED(status))
        run.exitCode = WEXITSTATUS(status);
    return run;
}

} // namespace seed_run

#endif
