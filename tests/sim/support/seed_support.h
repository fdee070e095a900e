// Seeded data directories for the simulated runtime's tests: runs the seeding
// tool next to the test binary and starts the runtime on its result.
#ifndef HYSIM_SEED_SUPPORT_H
#define HYSIM_SEED_SUPPORT_H

#include <gtest/gtest.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "sim_core.h"

extern char** environ;

namespace seed_test {

inline std::string seederPath()
{
    return HYLN_TEST_SEEDER;
}

inline std::string freshDirectory(const std::string& tag)
{
    std::filesystem::path base = std::filesystem::temp_directory_path() / "hysim-seed";
    std::filesystem::create_directories(base);
    std::string pattern = (base / (tag + "-XXXXXX")).string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    return pattern;
}

struct SeedRun {
    int exitCode = -1;
    std::string output; // stdout and stderr
};

// Runs the seeder with `arguments` split at blanks (never through a shell).
inline SeedRun runSeeder(const std::string& arguments)
{
    SeedRun run;
    std::vector<std::string> words{seederPath()};
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

// Seeds a new (empty) directory and returns it.
inline std::string seededDirectory(const std::string& tag, const std::string& arguments)
{
    std::string dir = freshDirectory(tag);
    SeedRun run = runSeeder("--dir " + dir + " " + arguments);
    EXPECT_EQ(run.exitCode, 0) << run.output;
    return dir;
}

inline STATUS startRuntimeOn(const std::string& dataDir)
{
    std::string program = dataDir;
    std::string ini = "=" + dataDir + "/notes.ini";
    char* argv[] = {program.data(), ini.data(), nullptr};
    return NotesInitExtended(2, argv);
}

} // namespace seed_test

#endif
