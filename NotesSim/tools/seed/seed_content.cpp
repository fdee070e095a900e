#include "seed_content.h"

#include <algorithm>
#include <cctype>

namespace seed {
namespace {

const std::vector<std::string> kFirstNames = {
    "Anna",  "Ben",    "Clara", "David", "Emma",   "Felix", "Greta",  "Hugo",  "Ida",   "Jonas",
    "Katja", "Lukas",  "Maria", "Noah",  "Olivia", "Paul",  "Quinn",  "Rosa",  "Simon", "Tara",
    "Uwe",   "Vera",   "Walter", "Xenia", "Yusuf", "Zoe",   "Amir",   "Bianca", "Carlos", "Dana",
    "Elif",  "Frank",  "Hanna", "Ivan",  "Julia",  "Karl",  "Lena",   "Mats",  "Nina",  "Oskar"};
const std::vector<std::string> kLastNames = {
    "Adler",  "Becker", "Castro", "Dietz",  "Eklund", "Fischer", "Garcia", "Hoffmann", "Ivanova", "Jensen",
    "Keller", "Lorenz", "Meyer",  "Nowak",  "Olsen",  "Peters",  "Quast",  "Richter",  "Schmidt", "Tanaka",
    "Ulrich", "Vogel",  "Weber",  "Xu",     "Yilmaz", "Zimmer",  "Brandt", "Costa",    "Dufour",  "Engel",
    "Frey",   "Graf",   "Horn",   "Iversen", "Jung",  "Krause",  "Lange",  "Moreau",   "Neumann", "Otto"};
const std::vector<std::string> kTopics = {"Budget", "Quarterly", "Project", "Customer", "Release",
                                          "Travel", "Training",  "Contract", "Team",   "Security"};
const std::vector<std::string> kThings = {"review",  "plan",    "meeting", "report", "update",
                                          "request", "minutes", "figures", "draft",  "schedule"};
const std::vector<std::string> kSentences = {
    "Please find the latest figures below.",
    "Let me know if anything is missing before Friday.",
    "The meeting has been moved to the small conference room.",
    "We agreed to revisit the open points next week.",
    "Thanks for the quick turnaround on this.",
    "I have attached the documents we discussed.",
    "The customer confirmed the delivery date.",
    "Could you review the draft and send me your comments?",
    "Budget approval is still pending with finance.",
    "All action items from the last call are closed."};
const std::vector<std::string> kExtensions = {"pdf", "docx", "xlsx", "txt", "png", "zip"};

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

} // namespace

Content::Content(unsigned seed, unsigned stream)
{
    std::seed_seq sequence{seed, stream};
    random_.seed(sequence);
}

int Content::between(int low, int high)
{
    return std::uniform_int_distribution<int>(low, high)(random_);
}

bool Content::chance(double probability)
{
    return std::uniform_real_distribution<double>(0.0, 1.0)(random_) < probability;
}

Person Content::extraPerson(const std::string& first, const std::string& last, const std::string& org,
                            const std::string& mailDomain)
{
    Person person;
    person.firstName = first;
    person.lastName = last;
    person.commonName = first + " " + last;
    person.canonicalName = "CN=" + person.commonName + "/O=" + org;
    std::string shortName = lowered(first.substr(0, 1) + last);
    for (int n = 2; !shortNames_.insert(shortName).second; ++n)
        shortName = lowered(first.substr(0, 1) + last) + std::to_string(n);
    person.shortName = shortName;
    person.internetAddress = lowered(first) + "." + lowered(last) + "@" + lowered(mailDomain) + ".example";
    person.mailPath = "mail/" + shortName + ".nsf";
    person.mailFile = person.mailPath;
    return person;
}

std::vector<Person> Content::people(size_t count, const std::string& org, const std::string& mailDomain)
{
    std::vector<size_t> pairs(kFirstNames.size() * kLastNames.size());
    for (size_t i = 0; i < pairs.size(); ++i)
        pairs[i] = i;
    std::shuffle(pairs.begin(), pairs.end(), random_);
    std::vector<Person> result;
    for (size_t i = 0; i < count; ++i) {
        size_t pair = pairs[i % pairs.size()];
        std::string last = kLastNames[pair % kLastNames.size()];
        if (i >= pairs.size())
            last += std::to_string(i / pairs.size() + 1);
        result.push_back(extraPerson(kFirstNames[pair / kLastNames.size()], last, org, mailDomain));
        // Every fourth directory entry leaves the extension off, as real directories often do.
        if (i % 4 == 3)
            result.back().mailFile = "mail/" + result.back().shortName;
    }
    return result;
}

std::string Content::subject()
{
    std::string text = pick(kTopics) + " " + pick(kThings);
    if (chance(0.3))
        text = "Re: " + text;
    return text + " #" + std::to_string(between(1, 999));
}

std::string Content::body()
{
    std::string text;
    int paragraphs = between(1, 4);
    for (int p = 0; p < paragraphs; ++p) {
        if (p > 0)
            text += '\0';
        int sentences = between(1, 3);
        for (int s = 0; s < sentences; ++s)
            text += (s > 0 ? " " : "") + pick(kSentences);
    }
    return text;
}

std::string Content::attachmentName()
{
    return lowered(pick(kTopics)) + "-" + pick(kThings) + "-" + std::to_string(between(1, 99)) + "." +
           pick(kExtensions);
}

std::vector<char> Content::bytes(size_t count)
{
    std::vector<char> data(count);
    for (auto& byte : data)
        byte = static_cast<char>(random_() & 0xFF);
    return data;
}

long long Content::momentBefore(long long reference)
{
    constexpr int kTwoYears = 730 * 86400;
    return reference - between(0, kTwoYears);
}

} // namespace seed
