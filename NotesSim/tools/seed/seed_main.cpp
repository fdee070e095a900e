// hyln-seed: writes a sample server data directory (notes.ini and databases)
// through the simulated runtime's C API.
#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "seeder.h"

namespace fs = std::filesystem;

namespace {

bool isUsableDirectory(const fs::path& dir, bool force, std::string& error)
{
    std::error_code code;
    if (fs::exists(dir, code) && !fs::is_directory(dir, code)) {
        error = dir.string() + " is not a directory";
        return false;
    }
    if (!force && fs::exists(dir, code) && !fs::is_empty(dir, code)) {
        error = dir.string() + " is not empty (use --force to seed it anyway)";
        return false;
    }
    return true;
}

std::string writeNotesIni(const seed::Options& options)
{
    std::string path = options.dataDir + "/notes.ini";
    std::ofstream ini(path, std::ios::trunc);
    ini << "[Notes]\n"
        << "Directory=" << options.dataDir << "\n"
        << "ServerName=" << options.server << "\n"
        << "Domain=" << options.domain << "\n"
        << "HySimTimeZone=0\n";
    if (!ini)
        throw std::runtime_error("cannot write " + path);
    return path;
}

std::string makeScratchDir()
{
    std::string pattern = (fs::temp_directory_path() / "hyln-seed-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("cannot create a scratch directory");
    return pattern;
}

seed::Totals seedDataDirectory(const seed::Options& options)
{
    std::string ini = writeNotesIni(options);
    std::string scratch = makeScratchDir();
    try {
        seed::Totals totals = seed::Seeder(options, ini, scratch).run();
        fs::remove_all(scratch);
        return totals;
    } catch (...) {
        fs::remove_all(scratch);
        throw;
    }
}

} // namespace

int main(int argc, char** argv)
{
    seed::Options options;
    int parsed = seed::parseOptions(argc, argv, options);
    if (parsed >= 0)
        return parsed;
    std::string error;
    if (!isUsableDirectory(options.dataDir, options.force, error)) {
        std::fprintf(stderr, "hyln-seed: %s\n", error.c_str());
        return 2;
    }
    try {
        fs::create_directories(options.dataDir);
        options.dataDir = fs::canonical(options.dataDir).string();
        auto start = std::chrono::steady_clock::now();
        seed::Totals totals = seedDataDirectory(options);
        std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        std::printf("hyln-seed: %s: %zu files, %zu notes in %.2f seconds\n", options.dataDir.c_str(),
                    totals.files, totals.notes, elapsed.count());
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "hyln-seed: %s\n", failure.what());
        return 1;
    }
}
