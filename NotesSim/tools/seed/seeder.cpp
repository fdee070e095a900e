// What a seeded data directory holds: names.nsf with person documents (and the
// odd entries mailbox discovery has to cope with), one mail file per person
// with views and memos, a left-over copy of one mail file, application
// databases and a template under apps/, a router mailbox, and, on request,
// extra scan directories.
#include "seeder.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "exit_child.h"

namespace seed {
namespace {

constexpr long long kSeededEpoch = 1700000000; // 2023-11-14, the base of every seeded time
constexpr size_t kAttachmentSources = 4;
constexpr size_t kWorkers = 4;
constexpr long long kMailClockStart = 1000000; // seconds after the seeded "now"

// "O=Org" of a canonical server name, else the domain.
std::string organisationOf(const std::string& server, const std::string& domain)
{
    size_t at = server.rfind("/O=");
    size_t start = at != std::string::npos ? at + 3 : server.compare(0, 2, "O=") == 0 ? 2 : std::string::npos;
    if (start == std::string::npos)
        return domain;
    return server.substr(start, server.find('/', start) - start);
}

void personItems(Note& note, const Person& person, const std::string& server)
{
    note.text("Form", "Person");
    note.text("Type", "Person");
    note.text("FirstName", person.firstName);
    note.text("LastName", person.lastName);
    note.textList("FullName", {person.canonicalName, person.commonName});
    note.text("ShortName", person.shortName);
    note.text("InternetAddress", person.internetAddress);
    note.text("MailServer", server);
}

TIMEDATE replicaIdFrom(Content& content)
{
    TIMEDATE id;
    id.Innards[0] = static_cast<DWORD>(content.between(0, 0x7FFFFFFF));
    id.Innards[1] = static_cast<DWORD>(content.between(0, 0x7FFFFFFF)) | 0x80000000u;
    return id;
}

std::vector<std::string> writeSources(const std::string& dir, const std::vector<std::vector<char>>& data)
{
    std::filesystem::create_directories(dir);
    std::vector<std::string> paths;
    for (size_t i = 0; i < data.size(); ++i) {
        paths.push_back(dir + "/source" + std::to_string(i));
        std::ofstream out(paths.back(), std::ios::binary);
        out.write(data[i].data(), static_cast<std::streamsize>(data[i].size()));
        if (!out)
            throw std::runtime_error("cannot write " + paths.back());
    }
    return paths;
}

Totals waitForWorker(pid_t pid, int totalsPipe)
{
    Totals totals;
    bool complete = read(totalsPipe, &totals, sizeof totals) == static_cast<ssize_t>(sizeof totals);
    close(totalsPipe);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!complete || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("a worker process failed");
    return totals;
}

} // namespace

Seeder::Seeder(const Options& options, const std::string& iniPath, const std::string& scratchDir)
    : options_(options),
      iniPath_(iniPath),
      scratchDir_(scratchDir),
      org_(organisationOf(options.server, options.domain)),
      reference_(kSeededEpoch + static_cast<long long>(options.seed % 1000) * 86400),
      content_(options.seed, 0)
{
}

Totals Seeder::run()
{
    for (size_t i = 0; i < kAttachmentSources; ++i)
        attachmentData_.push_back(content_.bytes(options_.attachmentSize));
    std::vector<Person> people = content_.people(options_.users, org_, options_.domain);
    std::vector<MailJob> jobs = planMailFiles(people);
    // The workers start before this process starts its runtime: a child never
    // inherits open databases.
    size_t workers = std::min(kWorkers, jobs.size());
    std::vector<std::pair<pid_t, int>> started;
    for (size_t w = 0; w < workers; ++w) {
        int totalsPipe = -1;
        started.emplace_back(startWorker(w, workers, jobs, people, totalsPipe), totalsPipe);
    }
    Totals totals;
    {
        Runtime runtime(options_.dataDir, iniPath_);
        Writer writer(options_.dataDir, reference_);
        writeDirectory(writer, people);
        writeApplications(writer);
        totals += writer.totals();
    }
    for (const auto& worker : started)
        totals += waitForWorker(worker.first, worker.second);
    return totals;
}

// One mail file per person, and a left-over copy of the first one: a replica
// under another name.
std::vector<MailJob> Seeder::planMailFiles(const std::vector<Person>& people)
{
    std::vector<MailJob> jobs;
    for (const auto& person : people)
        jobs.push_back({jobs.size(), &person, person.mailPath, replicaIdFrom(content_), options_.messages});
    if (!people.empty())
        jobs.push_back({jobs.size(), &people[0], people[0].mailPath + ".bak", jobs[0].replicaId,
                        std::min<size_t>(options_.messages, 5)});
    return jobs;
}

pid_t Seeder::startWorker(size_t worker, size_t workers, const std::vector<MailJob>& jobs,
                          const std::vector<Person>& people, int& totalsPipe)
{
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("cannot create a pipe");
    pid_t pid = fork();
    if (pid < 0)
        throw std::runtime_error("cannot start a worker process");
    if (pid == 0) {
        close(ends[0]);
        int code = 0;
        try {
            Totals totals = writeMailFiles(worker, workers, jobs, people);
            code = write(ends[1], &totals, sizeof totals) == static_cast<ssize_t>(sizeof totals) ? 0 : 1;
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "hyln-seed: %s\n", failure.what());
            code = 1;
        }
        process::exitChild(code);
    }
    close(ends[1]);
    totalsPipe = ends[0];
    return pid;
}

// Every `workers`-th mail file from `worker` on; each file draws on a content
// stream and a clock of its own, so the result does not depend on who writes it.
Totals Seeder::writeMailFiles(size_t worker, size_t workers, const std::vector<MailJob>& jobs,
                              const std::vector<Person>& people)
{
    Runtime runtime(options_.dataDir, iniPath_);
    std::vector<std::string> sources =
        writeSources(scratchDir_ + "/worker" + std::to_string(worker), attachmentData_);
    Totals totals;
    for (size_t j = worker; j < jobs.size(); j += workers) {
        const MailJob& job = jobs[j];
        Content content(options_.seed, static_cast<unsigned>(job.index + 1));
        // One second per write: the memos, and up to 24 design notes and folder additions.
        long long clock = reference_ + kMailClockStart + static_cast<long long>(job.index * (options_.messages + 24));
        Writer writer(options_.dataDir, clock);
        MailWriter(writer, content, sources, people, reference_).write(job);
        totals += writer.totals();
    }
    return totals;
}

void Seeder::writeDirectory(Writer& writer, const std::vector<Person>& people)
{
    auto names = writer.newDatabase("names.nsf", org_ + "'s Directory", DBCLASS_NOTEFILE, replicaIdFrom(content_));
    writer.writeView(*names, "($People)|People", "", kDirectoryColumns);
    writer.writeView(*names, "($Users)", "", kDirectoryColumns);
    for (const auto& person : people) {
        Note note(*names);
        personItems(note, person, options_.server);
        note.text("MailFile", person.mailFile);
        writer.save(note);
    }
    writeOddPeople(writer, *names, people);
    writeServerAndGroup(writer, *names, people);
}

// The entries mailbox discovery must skip or filter: no mail file, a text-list
// or numeric mail file, a path on another machine, a mail file shared with
// another person, and the left-over copy of a mail file.
void Seeder::writeOddPeople(Writer& writer, Database& names, const std::vector<Person>& people)
{
    struct Odd {
        const char* first;
        const char* last;
    };
    const Odd odd[] = {{"Nadia", "Nomail"}, {"Lars", "Listmail"}, {"Nils", "Numeric"},
                       {"Erik", "External"}, {"Sven", "Shared"},  {"Tina", "Twin"}};
    for (size_t i = 0; i < sizeof odd / sizeof odd[0]; ++i) {
        bool needsAnotherPerson = i >= 4;
        if (needsAnotherPerson && people.empty())
            break;
        Person person = content_.extraPerson(odd[i].first, odd[i].last, org_, options_.domain);
        Note note(names);
        personItems(note, person, options_.server);
        switch (i) {
        case 1: note.textList("MailFile", {person.mailPath, "mail/" + person.shortName + "-old.nsf"}); break;
        case 2: note.number("MailFile", 42); break;
        case 3: note.text("MailFile", "C:\\mail\\ext.nsf"); break;
        case 4: note.text("MailFile", people[0].mailFile); break;
        case 5: note.text("MailFile", people[0].mailPath + ".bak"); break;
        default: break;
        }
        writer.save(note);
    }
}

void Seeder::writeServerAndGroup(Writer& writer, Database& names, const std::vector<Person>& people)
{
    Note server(names);
    server.text("Form", "Server");
    server.text("Type", "Server");
    server.text("ServerName", options_.server);
    server.text("Domain", options_.domain);
    writer.save(server);

    Note group(names);
    group.text("Form", "Group");
    group.text("Type", "Group");
    group.text("ListName", "LocalDomainAdmins");
    std::vector<std::string> members;
    for (size_t i = 0; i < people.size() && i < 3; ++i)
        members.push_back(people[i].canonicalName);
    group.textList("Members", members);
    writer.save(group);
}

void Seeder::writeApplication(Writer& writer, const std::string& path, const std::string& info, WORD dbClass,
                              size_t documents)
{
    auto db = writer.newDatabase(path, info, dbClass, replicaIdFrom(content_));
    writer.writeView(*db, "($All)", "", kDocumentColumns);
    writer.writeView(*db, "By Category", "", kDocumentColumns);
    for (size_t i = 0; i < documents; ++i) {
        Note note(*db);
        note.text("Form", "Topic");
        note.text("Subject", content_.subject());
        note.text("From", "CN=Outside Contact/O=Partner");
        note.time("Created", timedateOfUnix(content_.momentBefore(reference_)));
        std::string body = content_.body();
        note.raw("Body", 0, TYPE_TEXT, std::vector<char>(body.begin(), body.end()));
        writer.save(note);
    }
}

// Applications, a template, the router's mailbox and the extra scan directories.
void Seeder::writeApplications(Writer& writer)
{
    writeApplication(writer, "apps/discussion.ntf", "Discussion Template\n#1StdDiscussion", DBCLASS_TEMPLATEFILE, 0);
    writeApplication(writer, "apps/discussion.nsf", "Team Discussion\n#2StdDiscussion", DBCLASS_NOTEFILE, 12);
    writeApplication(writer, "apps/projects.nsf", "Project Tracker", DBCLASS_NOTEFILE, 8);
    writeApplication(writer, "apps/archive/projects-2019.nsf", "Project Tracker 2019", DBCLASS_NOTEFILE, 5);
    writeApplication(writer, "mail.box", "Outgoing Mail", DBCLASS_NOTEFILE, 0);
    for (size_t k = 1; k <= options_.extraDirs; ++k) {
        std::string dir = "extra" + std::to_string(k);
        std::string title = "Archive " + std::to_string(k);
        writeApplication(writer, dir + "/archive-a.nsf", title + "A", DBCLASS_NOTEFILE, 3);
        writeApplication(writer, dir + "/archive-b.nsf", title + "B", DBCLASS_NOTEFILE, 3);
        writeApplication(writer, dir + "/old/archive-c.nsf", title + "C", DBCLASS_NOTEFILE, 2);
    }
}

} // namespace seed
