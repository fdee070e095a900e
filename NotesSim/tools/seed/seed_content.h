// Deterministic sample content: people, memo texts and times, all drawn from
// one seeded generator so that a seed always gives the same data directory.
#ifndef HYSEED_CONTENT_H
#define HYSEED_CONTENT_H

#include <random>
#include <set>
#include <string>
#include <vector>

namespace seed {

struct Person {
    std::string firstName;
    std::string lastName;
    std::string canonicalName; // CN=First Last/O=Org
    std::string commonName;    // First Last
    std::string shortName;
    std::string internetAddress;
    std::string mailFile;      // as the directory names it
    std::string mailPath;      // the database file, relative to the data directory
};

class Content {
public:
    // One stream of content per (seed, stream) pair, independent of every other stream.
    Content(unsigned seed, unsigned stream);

    // `count` people with distinct names and short names in organisation `org`.
    std::vector<Person> people(size_t count, const std::string& org, const std::string& mailDomain);
    Person extraPerson(const std::string& first, const std::string& last, const std::string& org,
                       const std::string& mailDomain);

    std::string subject();
    // Paragraphs separated by NUL bytes, the line break of stored text.
    std::string body();
    std::string attachmentName();
    std::vector<char> bytes(size_t count);
    // Seconds since 1970, some time within the two years before `reference`.
    long long momentBefore(long long reference);
    int between(int low, int high);
    bool chance(double probability);
    template <class T>
    const T& pick(const std::vector<T>& items)
    {
        return items[static_cast<size_t>(between(0, static_cast<int>(items.size()) - 1))];
    }

private:
    std::mt19937 random_;
    std::set<std::string> shortNames_;
};

} // namespace seed

#endif
