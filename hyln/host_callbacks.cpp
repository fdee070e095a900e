#include "host_callbacks.h"

#include <csignal>
#include <cstdio>
#include <string>

#include "HYLNTool.h"
#include "output.h"
#include "records.h"

namespace hyln {
namespace {

volatile std::sig_atomic_t stopRequested = 0;

void onInterrupt(int)
{
    stopRequested = 1;
}

void logLine(const char* function, int level, const char* file, int line, const char* text, ...)
{
    host().logTexts.push_back(text);
    if (level > host().maxLogLevel)
        return;
    std::string shown = text;
    while (!shown.empty() && shown.back() == '\n')
        shown.pop_back();
    output().clearProgress();
    std::fprintf(stderr, "[%d] %s (%s:%d): %s\n", level, function, file, line, shown.c_str());
}

bool quitRequested()
{
    return stopRequested != 0;
}

bool sessionLost()
{
    return stopRequested != 0;
}

bool acceptRecord(char* message)
{
    if (host().messages != nullptr) {
        host().messages->push_back(message);
        return false;
    }
    std::string record = message;
    output().record(readableRecord(record), recordFields(record));
    output().progress(++host().recordsReceived, "databases reported");
    return false;
}

} // namespace

HostState& host()
{
    static HostState state;
    return state;
}

void installCallbacks()
{
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    SetLogCallback(logLine);
    SetJobQuitCallback(quitRequested);
    SetSendMsgCallback(acceptRecord);
    SetCheckConnectionCallback(sessionLost);
}

bool interrupted()
{
    return stopRequested != 0;
}

size_t countLogs(const char* prefix)
{
    size_t count = 0;
    for (const std::string& text : host().logTexts)
        count += text.rfind(prefix, 0) == 0 ? 1 : 0;
    return count;
}

} // namespace hyln
