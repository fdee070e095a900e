#include "host_callbacks.h"

#include <csignal>
#include <cstdio>
#include <string>

#include "HYLNTool.h"

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
    std::fflush(stdout);
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
    HostState& state = host();
    state.records.emplace_back(message);
    if (state.progress && state.records.size() % 100 == 0)
        std::fprintf(stderr, "\r%zu databases reported...", state.records.size());
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
    std::signal(SIGINT, onInterrupt);
    SetLogCallback(logLine);
    SetJobQuitCallback(quitRequested);
    SetSendMsgCallback(acceptRecord);
    SetCheckConnectionCallback(sessionLost);
}

bool interrupted()
{
    return stopRequested != 0;
}

} // namespace hyln
