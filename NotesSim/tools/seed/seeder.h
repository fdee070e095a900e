// The seeding tool: options, and the writer of a sample server data directory.
#ifndef HYSEED_SEEDER_H
#define HYSEED_SEEDER_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "seed_content.h"
#include "seed_mail.h"
#include "seed_writer.h"

namespace seed {

struct Options {
    std::string dataDir;
    size_t users = 10;
    size_t messages = 20;
    size_t attachmentSize = 4096;
    unsigned seed = 1;
    std::string server = "CN=HySrv01/O=HyOrg";
    std::string domain = "HyOrg";
    size_t extraDirs = 0;
    bool force = false;
};

// Reads the command line: -1 to go on, or the exit code (0 after --help, 2 for a usage error).
int parseOptions(int argc, char** argv, Options& options);

// Writes the databases of a data directory whose notes.ini is in place. Mail
// files are written by worker processes, each with a runtime of its own, so
// that the waits of one process for the disk overlap the work of the others.
class Seeder {
public:
    Seeder(const Options& options, const std::string& iniPath, const std::string& scratchDir);
    Totals run();

private:
    std::vector<MailJob> planMailFiles(const std::vector<Person>& people);
    pid_t startWorker(size_t worker, size_t workers, const std::vector<MailJob>& jobs,
                      const std::vector<Person>& people, int& totalsPipe);
    Totals writeMailFiles(size_t worker, size_t workers, const std::vector<MailJob>& jobs,
                          const std::vector<Person>& people);
    void writeDirectory(Writer& writer, const std::vector<Person>& people);
    void writeOddPeople(Writer& writer, Database& names, const std::vector<Person>& people);
    void writeServerAndGroup(Writer& writer, Database& names, const std::vector<Person>& people);
    void writeApplication(Writer& writer, const std::string& path, const std::string& info, WORD dbClass,
                          size_t documents);
    void writeApplications(Writer& writer);

    Options options_;
    std::string iniPath_;
    std::string scratchDir_;
    std::string org_;
    long long reference_; // the seeded "now": every generated time lies before it
    Content content_;     // people, replica IDs and everything outside the mail files
    std::vector<std::vector<char>> attachmentData_;
};

} // namespace seed

#endif
