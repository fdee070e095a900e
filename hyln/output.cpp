#include "output.h"

#include <unistd.h>

namespace hyln {

bool Output::claimStandardOutput()
{
    std::fflush(stdout);
    int saved = dup(STDOUT_FILENO);
    if (saved < 0)
        return false;
    FILE* stream = fdopen(saved, "w");
    if (stream == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        if (stream != nullptr)
            std::fclose(stream);
        else
            close(saved);
        return false;
    }
    records = stream;
    // What the library prints then reaches standard error at once, in order with our lines.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    return true;
}

void Output::heading(const std::string& text)
{
    if (!mode.json) {
        std::fprintf(records, "%s\n", text.c_str());
        std::fflush(records);
    }
}

void Output::record(const std::string& text, nlohmann::json fields, const char* type)
{
    if (mode.json) {
        writeJson(type, std::move(fields));
    } else if (recordsShown) {
        std::fprintf(records, "%s\n", text.c_str());
        // A reader of the pipe sees each record when it is done, also if the run ends early.
        std::fflush(records);
    }
}

void Output::summary(const std::string& text, nlohmann::json fields)
{
    size_t start = text.find_first_not_of('\n');
    summaries.push_back(start == std::string::npos ? "" : text.substr(start));
    clearProgress();
    std::fflush(records);
    if (mode.json)
        writeJson("summary", std::move(fields));
    if (!mode.quiet)
        std::fprintf(stderr, "%s\n", text.c_str());
}

void Output::failure(const std::string& message, nlohmann::json fields)
{
    clearProgress();
    std::fflush(records);
    if (mode.json)
        writeJson("error", std::move(fields));
    std::fprintf(stderr, "hyln: %s\n", message.c_str());
}

void Output::progress(size_t count, const char* what)
{
    if (!mode.progress || mode.quiet)
        return;
    std::fprintf(stderr, "\r%zu %s...", count, what);
    progressShown = true;
}

void Output::writeJson(const char* type, nlohmann::json fields)
{
    nlohmann::json line = {{"type", type}, {"command", command}};
    line.update(fields);
    // Texts that are not valid UTF-8 are written with replacement characters rather than lost.
    std::fprintf(records, "%s\n", line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    std::fflush(records);
}

void Output::clearProgress()
{
    if (progressShown)
        std::fputc('\n', stderr);
    progressShown = false;
}

Output& output()
{
    static Output instance;
    return instance;
}

} // namespace hyln
