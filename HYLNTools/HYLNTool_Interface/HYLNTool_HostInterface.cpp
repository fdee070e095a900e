#include "HYLNTool_HostInterface.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

void (*pLogCallback)(const char*, int, const char*, int, const char*, ...) = nullptr;
bool (*pJobQuitCallback)() = nullptr;
bool (*pSendMsgCallback)(char*) = nullptr;
bool (*pCheckConnectionCallback)() = nullptr;

void SetLogCallback(void (*cb)(const char*, int, const char*, int, const char*, ...))
{
    pLogCallback = cb;
}

void LogMessage(const char* function, int level, const char* file, int line, const char* format, ...)
{
    if (pLogCallback == nullptr)
        return;
    char text[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    pLogCallback(function, level, file, line, text);
}

void SetJobQuitCallback(bool (*cb)())
{
    pJobQuitCallback = cb;
}

bool QuitJob()
{
    return pJobQuitCallback == nullptr ? true : pJobQuitCallback();
}

void SetSendMsgCallback(bool (*cb)(char*))
{
    pSendMsgCallback = cb;
}

bool SendDBMessage(char* message)
{
    return pSendMsgCallback == nullptr ? true : pSendMsgCallback(message);
}

void SetCheckConnectionCallback(bool (*cb)())
{
    pCheckConnectionCallback = cb;
}

bool CheckConnection()
{
    return pCheckConnectionCallback == nullptr ? false : pCheckConnectionCallback();
}

#define HY_ENTRY(ret, name, params, args) HY_##name##_t HY_##name = nullptr;
#include "HYLNTool_EntryPoints.def"
#undef HY_ENTRY

bool loadNotesFunctions(std::string installDir)
{
    std::string path = installDir + "/notes/latest/linux/libnotes.so";
    if (access(path.c_str(), F_OK) != 0) {
        printf("Notes API Lib %s does not exist!", path.c_str());
        return false;
    }
    void* library = dlopen(path.c_str(), RTLD_LAZY);
    if (library == nullptr) {
        fputs(dlerror(), stderr);
        // The first dlerror() call consumed the error; the second usually yields null.
        const char* second = dlerror();
        printf("Could not load %s.\nError from dlopen:%s\n", path.c_str(), second);
        return false;
    }
#define HY_ENTRY(ret, name, params, args)                                                \
    HY_##name = reinterpret_cast<HY_##name##_t>(dlsym(library, #name));                \
    if (HY_##name == nullptr) {                                                          \
        printf("Could not obtain address of " #name " from %s.\n", path.c_str());       \
        return false;                                                                    \
    }
#include "HYLNTool_EntryPoints.def"
#undef HY_ENTRY
    return true;
}
