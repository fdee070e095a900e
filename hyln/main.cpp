// hyln: drives the library the way a backup agent does.
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "HYLNTool.h"
#include "commands.h"
#include "host_callbacks.h"
#include "output.h"
#include "version_stamp.h"

namespace fs = std::filesystem;

namespace {

const char kJsonKeys[] =
    "Output: records on standard output, log lines, progress and summaries on standard error.\n"
    "With --json, standard output carries only JSON lines, each an object with \"type\" and \"command\":\n"
    "  database  path, and for full records title, view, replica, owner\n"
    "  note      note_id, and path and bytes (export) or stubbed, attachments, attachment_bytes (stub)\n"
    "  view      name, database (views)\n"
    "  columns   view, titles (index)\n"
    "  entry     note_id, category, fields (index)\n"
    "  note      for archive also unid, outcome (archived, already_stubbed, too_recent, failed),\n"
    "            bytes, attachments, message; for restore unid and outcome\n"
    "  difference  unid, difference (verify)\n"
    "  log       log_number, source, path, bytes (translog)\n"
    "  summary   databases (count), interrupted, and per command: entries and skipped\n"
    "            (without_mail_file, mail_file_not_text, external, failed, duplicates) for\n"
    "            mailboxes; directory for databases and additional; notes, chosen and database\n"
    "            for export and stub; views for views; entries and view for index; notes,\n"
    "            modified, deleted, unread_skipped, folder_removed, folder_warning for select;\n"
    "            databases, archived, already_stubbed, too_recent, failed, dxl_bytes for archive;\n"
    "            notes, archived, database, acl for restore; notes, archived, differences,\n"
    "            database for verify; extents, bytes, style for translog\n"
    "  error     operation, subject, message, and code (the Domino status) when there is one\n"
    "Exit codes: 0 success, 1 failure, 2 usage error, 130 interrupted (Ctrl-C ends after the current item).";

std::string fromEnvironment(const char* name, const std::string& fallback)
{
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

fs::path executableDir()
{
    std::error_code error;
    fs::path self = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::path(".") : self.parent_path();
}

// Paths next to the installed (or built) hyln, never into a particular build tree.
std::string besideExecutable(const std::string& relative)
{
    return (executableDir() / relative).lexically_normal().string();
}

std::string absolutePath(const std::string& path)
{
    std::error_code error;
    fs::path absolute = path.empty() ? fs::path() : fs::absolute(path, error);
    return error ? path : absolute.lexically_normal().string();
}

std::string defaultSampleDir()
{
    std::string cache = fromEnvironment("XDG_CACHE_HOME", fromEnvironment("HOME", ".") + "/.cache");
    return cache + "/hyln/sample-server";
}

std::string versionText(const hyln::Options& options)
{
    std::string library = hyln::libraryFile();
    std::string libraryStamp = hyln::readVersionStamp(library);
    std::string runtime = options.dominoDir + "/notes/latest/linux/libnotes.so";
    std::string runtimeText;
    if (access(runtime.c_str(), R_OK) != 0) {
        runtimeText = "none at " + options.dominoDir;
    } else {
        std::string stamp = hyln::readVersionStamp(runtime);
        runtimeText = options.dominoDir + " (" + (stamp.empty() ? "no version stamp" : stamp) + ")";
    }
    return std::string("hyln ") + HYLN_VERSION_TEXT + "\nlibrary: " +
           (libraryStamp.empty() ? "no version stamp" : libraryStamp) + " (" + library + ")\nruntime: " + runtimeText;
}

// "N" or "N" with s, m, h or d; false for anything else.
bool parseDuration(const std::string& text, unsigned long* seconds)
{
    char* end = nullptr;
    unsigned long value = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || end == text.c_str() || !std::isdigit(static_cast<unsigned char>(text[0])))
        return false;
    const std::string units = "smhd";
    const unsigned long scale[] = {1, 60, 3600, 86400};
    size_t unit = *end == '\0' ? 0 : units.find(*end);
    if (unit == std::string::npos || (*end != '\0' && end[1] != '\0') || value > 0xFFFFFFFFul / scale[unit])
        return false;
    if (seconds != nullptr)
        *seconds = value * scale[unit];
    return true;
}

struct Command {
    const char* name = nullptr;
    CLI::App* app = nullptr;
    int (*run)(const hyln::Options&) = nullptr;
};

int demo(const hyln::Options& options)
{
    return hyln::runDemo(options);
}

class CommandLine {
public:
    CommandLine() : app("Drives the HYLNTool library the way a backup agent does.", "hyln")
    {
        options.dominoDir = fromEnvironment("HYLN_DOMINO_DIR", besideExecutable(HYLN_RELATIVE_DOMINO_DIR));
        options.dataDir = fromEnvironment("HYLN_DATA_DIR", "");
        options.iniPath = fromEnvironment("HYLN_NOTES_INI", "");
        options.server = fromEnvironment("HYLN_SERVER", "");
        options.seeder = besideExecutable("hyln-seed");
        addGlobalOptions();
        addCommands();
    }

    // The exit code of a finished parse, or -1 to go on and run the chosen command.
    int parse(int argc, char** argv)
    {
        try {
            app.parse(argc, argv);
        } catch (const CLI::Success& done) {
            return app.exit(done);
        } catch (const CLI::ParseError& error) {
            return usageError(error.what());
        }
        if (helpCommand->parsed())
            return showHelp();
        if (!app.remaining().empty())
            return usageError("unknown option or argument: " + CLI::detail::join(app.remaining(), " "));
        if (versionWanted) {
            std::cout << versionText(options) << "\n";
            return hyln::kSuccess;
        }
        const Command* chosen = chosenCommand();
        if (chosen == nullptr)
            return usageError(
                "a command is required: discover mailboxes|databases|additional, export, stub, views, index, select, "
                "archive, restore, verify, translog, demo or help");
        // Checked here rather than by the parser, so that "help discover additional" works.
        if (chosen->run == hyln::discoverAdditional && options.directories.empty())
            return usageError("discover additional: the directories are required (DIR1?DIR2)");
        options.folderMode = folderMode == "exclude" ? 2 : 1;
        parseDuration(olderThan, &options.olderThanSeconds);
        if (chosen->run == hyln::archivePass && options.database.empty() == !options.allMailboxes)
            return usageError("archive: give a database or --all-mailboxes (one of the two)");
        bool perNote = chosen->run == hyln::exportNotes || chosen->run == hyln::stubNotes;
        if (perNote && options.noteIds.empty() != options.allNotes)
            return usageError(std::string(chosen->name) + ": give note IDs or --all (one of the two)");
        return -1;
    }

    int run()
    {
        const Command* command = chosenCommand();
        hyln::output().setCommand(command->name);
        // The library lets exceptions from the runtime through; the job ends, hyln does not.
        try {
            return command->run(options);
        } catch (const std::exception& failure) {
            return hyln::failWith(command->name, "the job", std::string("an exception escaped: ") + failure.what());
        } catch (...) {
            return hyln::failWith(command->name, "the job", "an exception of unknown type escaped");
        }
    }

    CLI::App app;
    hyln::Options options;
    hyln::OutputMode mode;
    int logLevel = 0;
    bool versionWanted = false;
    std::string folderMode = "include";
    std::string olderThan = "0";

private:
    void addGlobalOptions()
    {
        app.set_help_flag("-h,--help", "Show this help and exit");
        // A plain flag, read after the parse, so that it sees --domino wherever that stands.
        app.add_flag("--version", versionWanted, "Show the versions of hyln, the library and the runtime, and exit");
        app.add_option("--domino", options.dominoDir,
                       "Domino program directory holding notes/latest/linux/libnotes.so [HYLN_DOMINO_DIR]");
        app.add_option("--data", options.dataDir, "Domino data directory [HYLN_DATA_DIR]");
        app.add_option("--ini", options.iniPath, "notes.ini (default DATA/notes.ini) [HYLN_NOTES_INI]");
        app.add_option("--server", options.server, "Domino server to ask (default: local) [HYLN_SERVER]");
        app.add_flag("--json", mode.json, "Write records as JSON lines");
        app.add_flag("--progress", mode.progress, "Show progress even when standard error is not a terminal");
        app.add_flag("-q,--quiet", mode.quiet, "No progress and no summary text");
        app.add_option("--log-level", logLevel, "Show log lines up to this level (default 0; -1 errors only)");
        // Unknown words are collected and named after the parse, before any complaint
        // about a missing command.
        app.allow_extras();
        app.footer(kJsonKeys);
    }

    CLI::App* subcommand(CLI::App& parent, const char* name, const char* description)
    {
        CLI::App* command = parent.add_subcommand(name, description);
        command->set_help_flag("-h,--help", "Show this help and exit");
        command->fallthrough();
        return command;
    }

    void addCommands()
    {
        CLI::App* discover = subcommand(app, "discover", "Find databases (mailboxes, databases, additional)");
        CLI::App* mailboxes = subcommand(*discover, "mailboxes", "Report every user's mail file");
        mailboxes->add_flag("--quick", options.quick, "Short records (path and title only)");
        mailboxes->add_flag("--full-name", options.fullName, "Owner names from the directory");
        commands.push_back({"discover mailboxes", mailboxes, hyln::discoverMailboxes});
        CLI::App* databases = subcommand(*discover, "databases", "List the databases of the data directory");
        databases->add_option("directory", options.directory, "Directory to scan (default: the data directory)");
        commands.push_back({"discover databases", databases, hyln::discoverDatabases});
        CLI::App* additional =
            subcommand(*discover, "additional", "Report (or list) the databases of additional scan directories");
        additional->add_option("directories", options.directories, "Directories separated by '?' (required)");
        additional->add_flag("--list", options.listOnly, "Only list the database names");
        additional->add_flag("--quick", options.quick, "Short records (path and title only)");
        commands.push_back({"discover additional", additional, hyln::discoverAdditional});
        CLI::App* exportCommand = subcommand(app, "export", "Write notes of a database as DXL, one file per note");
        exportCommand->add_option("database", options.database, "Database path (relative to the data directory)")
            ->required();
        exportCommand->add_option("notes", options.noteIds, "Note IDs (decimal, or hex with 0x)");
        exportCommand->add_flag("--all", options.allNotes, "Every data note of the database");
        exportCommand->add_option("--out", options.outDir, "Directory for the DXL files (NOTEID.xml)")->required();
        exportCommand->add_flag("--file-mode", options.fileMode,
                                "Let the exporter write the file (default: through a memory buffer)");
        commands.push_back({"export", exportCommand, hyln::exportNotes});
        CLI::App* stubCommand =
            subcommand(app, "stub", "Archive notes in place: record attachment names, remove attachments, body and "
                                    "seals, mark the note as stubbed");
        stubCommand->add_option("database", options.database, "Database path (relative to the data directory)")
            ->required();
        stubCommand->add_option("notes", options.noteIds, "Note IDs (decimal, or hex with 0x)");
        stubCommand->add_flag("--all", options.allNotes, "Every data note of the database");
        commands.push_back({"stub", stubCommand, hyln::stubNotes});
        addViewCommands();
        addPassCommands();
        CLI::App* demoCommand = subcommand(
            app, "demo", "Seed a sample server if missing (default data directory ~/.cache/hyln/sample-server), "
                         "then discover");
        commands.push_back({"demo", demoCommand, demo});
        helpCommand = subcommand(app, "help", "Show the help of hyln or of a command: hyln help discover mailboxes");
    }

    CLI::App* databaseCommand(const char* name, const char* description)
    {
        CLI::App* command = subcommand(app, name, description);
        command->add_option("database", options.database, "Database path (relative to the data directory)")
            ->required();
        return command;
    }

    void addViewCommands()
    {
        CLI::App* views = databaseCommand("views", "List the views and folders of a database");
        commands.push_back({"views", views, hyln::listViews});
        CLI::App* index = databaseCommand("index", "Write the note index lines of a view or folder");
        index->add_option("view", options.viewName, "View or folder (title or alias)")->required();
        commands.push_back({"index", index, hyln::indexView});
        CLI::App* select = databaseCommand(
            "select", "List the notes an archiving pass would take: modified since a time, not unread, filtered "
                      "by folders");
        addSelectionOptions(select);
        commands.push_back({"select", select, hyln::selectNotes});
    }

    void addSelectionOptions(CLI::App* command)
    {
        command->add_option("--since", options.since, "Modified after this time (runtime date text; default: ever)");
        command->add_option("--owner", options.owner, "Mailbox owner for the unread marks (default: the title)");
        CLI::Option* folders =
            command->add_option("--folders", options.folders, "Folders separated by ';' (subfolders included)");
        command->add_option("--mode", folderMode, "include: only notes in the folders; exclude: none of them")
            ->check(CLI::IsMember({"include", "exclude"}))
            ->needs(folders);
    }

    void addPassCommands()
    {
        CLI::App* archive = subcommand(
            app, "archive",
            "The archiving pass: select, export DXL and index lines, record folders, stub; writes a manifest");
        archive->add_option("database", options.database, "Database path (relative to the data directory)");
        archive->add_flag("--all-mailboxes", options.allMailboxes, "Every user's mail file instead of one database");
        addSelectionOptions(archive);
        archive->add_option("--older-than", olderThan, "Only notes at least this old: N[s|m|h|d] (default 0)")
            ->check([](const std::string& text) { return parseDuration(text, nullptr) ? "" : "not a duration"; });
        archive->add_flag("--delete", options.deleteArchived,
                          "Delete each archived note instead of stubbing it (restore brings it back)");
        archive->add_option("--view", options.viewName, "View whose entries give the index lines")
            ->default_val("($All)");
        archive->add_option("--out", options.outDir, "Archive directory (one subdirectory per database)")->required();
        commands.push_back({"archive", archive, hyln::archivePass});
        CLI::App* restore = subcommand(app, "restore", "Bring archived notes back, with their folders");
        restore->add_option("database", options.database, "Database path (relative to the data directory)")
            ->required();
        restore->add_option("--from", options.fromDir, "The archive directory (given to archive --out)")->required();
        restore->add_flag("--acl", options.withAcl, "Restore the ACL too");
        commands.push_back({"restore", restore, hyln::restoreArchive});
        CLI::App* verify =
            subcommand(app, "verify", "Compare a database with its archive: items, folders, unread marks");
        verify->add_option("database", options.database, "Database path (relative to the data directory)")
            ->required();
        verify->add_option("--against", options.fromDir, "The archive directory (given to archive --out)")
            ->required();
        verify->add_option("--owner", options.owner, "Mailbox owner for the unread marks (default: the title)");
        commands.push_back({"verify", verify, hyln::verifyArchive});
        CLI::App* translog = subcommand(app, "translog", "Archive the server's transaction-log extents");
        translog->add_option("--out", options.outDir, "Directory for the copies")->required();
        commands.push_back({"translog", translog, hyln::archiveTransactionLogs});
    }

    const Command* chosenCommand() const
    {
        for (const Command& command : commands)
            if (command.app->parsed())
                return &command;
        return nullptr;
    }

    static int usageError(const std::string& message)
    {
        std::cerr << "hyln: " << message << "\nRun 'hyln --help' for usage.\n";
        return hyln::kUsage;
    }

    // "help discover mailboxes": the parser has taken the words as the commands they
    // name, so the help shown is that of the deepest command parsed besides "help".
    int showHelp()
    {
        std::vector<std::string> unknown = app.remaining(true);
        if (!unknown.empty())
            return usageError("no command named '" + CLI::detail::join(unknown, " ") + "'");
        CLI::App* shown = &app;
        for (bool deeper = true; deeper;) {
            deeper = false;
            for (CLI::App* next : shown->get_subcommands())
                if (next != helpCommand) {
                    shown = next;
                    deeper = true;
                    break;
                }
        }
        std::cout << shown->help();
        return hyln::kSuccess;
    }

    std::vector<Command> commands;
    CLI::App* helpCommand = nullptr;
};

} // namespace

int main(int argc, char** argv)
{
    hyln::installCallbacks();
    CommandLine commandLine;
    int parsed = commandLine.parse(argc, argv);
    if (parsed >= 0)
        return parsed;
    hyln::OutputMode mode = commandLine.mode;
    mode.progress = !mode.quiet && (mode.progress || isatty(STDERR_FILENO));
    hyln::output().setMode(mode);
    hyln::host().maxLogLevel = commandLine.logLevel;
    if (commandLine.options.dataDir.empty() && commandLine.app.got_subcommand("demo"))
        commandLine.options.dataDir = defaultSampleDir();
    // The runtime reads a relative notes.ini path from its program directory; the user
    // means the current one.
    commandLine.options.dataDir = absolutePath(commandLine.options.dataDir);
    commandLine.options.iniPath = absolutePath(commandLine.options.iniPath);
    if (!hyln::output().claimStandardOutput()) {
        std::perror("hyln: cannot set up standard output");
        return hyln::kFailure;
    }
    return commandLine.run();
}
