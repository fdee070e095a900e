// The seeding tool: options, and the writer of a sample server data directory.
#ifndef HYSEED_SEEDER_H
#define HYSEED_SEEDER_H

#include <memory>
#include <string>
#include <vector>

#include "seed_api.h"
#include "seed_content.h"

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

// Reads the command line; false with `error` set when it is not usable.
bool parseOptions(int argc, char** argv, Options& options, std::string& error);
const char* usage();

struct Totals {
    size_t files = 0;
    size_t notes = 0;
};

struct Column {
    std::string item;
    std::string title;
};

// Writes the databases of the data directory through the started runtime.
class Seeder {
public:
    Seeder(const Options& options, const std::string& scratchDir);
    Totals run();

private:
    void prepareAttachmentSources();
    void stampClock();
    TIMEDATE nextReplicaId();
    std::unique_ptr<Database> newDatabase(const std::string& path, const std::string& info, WORD dbClass,
                                          const TIMEDATE& replicaId);
    void save(Note& note);
    void writeView(Database& db, const std::string& title, const std::string& flags,
                   const std::vector<Column>& columns);
    void writeDirectory(const std::vector<Person>& people);
    void writeOddPeople(Database& names, const std::vector<Person>& people);
    void writeServerAndGroup(Database& names, const std::vector<Person>& people);
    void writeMailFile(const Person& owner, const std::string& path, const TIMEDATE& replicaId,
                       const std::vector<Person>& people, size_t messages);
    std::string correspondent(const std::vector<Person>& people);
    void writeMemo(Database& db, const Person& owner, const std::vector<Person>& people);
    void writeAttachments(Note& memo, long long posted);
    void writeApplication(const std::string& path, const std::string& info, WORD dbClass, size_t documents);
    void writeApplications();
    void writeExtraDirectories();

    Options options_;
    Content content_;
    std::string org_;
    std::string scratchDir_;
    std::vector<std::string> attachmentSources_;
    long long reference_; // the seeded "now": every generated time lies before it
    long long clockTick_ = 0;
    Totals totals_;
};

} // namespace seed

#endif
