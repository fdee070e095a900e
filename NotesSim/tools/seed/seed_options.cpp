#include <CLI/CLI.hpp>

#include "seeder.h"

namespace seed {
namespace {

CLI::Validator nonEmpty()
{
    return CLI::Validator([](std::string& value) { return value.empty() ? std::string("must not be empty") : ""; },
                          "", "non-empty");
}

} // namespace

int parseOptions(int argc, char** argv, Options& options)
{
    CLI::App app("Writes a sample server data directory (notes.ini and databases) through the simulated "
                 "runtime's C API.",
                 "hyln-seed");
    app.set_help_flag("-h,--help", "Show this help and exit");
    app.add_option("--dir", options.dataDir, "Data directory to create")->required();
    app.add_option("--users", options.users, "People in the directory, each with a mail file")
        ->check(CLI::Range(0, 1000000));
    app.add_option("--messages", options.messages, "Memos in each mail file")->check(CLI::Range(0, 1000000));
    app.add_option("--attachment-size", options.attachmentSize, "Bytes of each memo's attachment")
        ->check(CLI::Range(0, 64 << 20));
    app.add_option("--seed", options.seed, "Seed of the generated content (same seed, same server)");
    app.add_option("--server", options.server, "Server name")->check(nonEmpty());
    app.add_option("--domain", options.domain, "Domain name")->check(nonEmpty());
    app.add_option("--extra-dirs", options.extraDirs, "Additional scan directories beside the data directory")
        ->check(CLI::Range(0, 100));
    app.add_flag("--force", options.force, "Seed a directory that is not empty");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& done) {
        return app.exit(done);
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "hyln-seed: %s\nRun 'hyln-seed --help' for usage.\n", error.what());
        return 2;
    }
    if (options.dataDir.empty()) {
        std::fprintf(stderr, "hyln-seed: --dir must not be empty\n");
        return 2;
    }
    return -1;
}

} // namespace seed
