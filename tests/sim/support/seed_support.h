// Seeded data directories for the simulated runtime's tests: runs the seeding
// tool next to the test binary and starts the runtime on its result.
#ifndef HYSIM_SEED_SUPPORT_H
#define HYSIM_SEED_SUPPORT_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "sim_core.h"
#include "support/seed_run.h"

namespace seed_test {

inline std::string freshDirectory(const std::string& tag)
{
    std::filesystem::path base = std::filesystem::temp_directory_path() / "hysim-seed";
    std::filesystem::create_directories(base);
    std::string pattern = (base / (tag + "-XXXXXX")).string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    return pattern;
}

using seed_run::runSeeder;
using seed_run::SeedRun;

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
