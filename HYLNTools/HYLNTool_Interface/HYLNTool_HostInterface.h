// Host callbacks, the log call, and the run-time binding of the Domino C API.
#ifndef HYLNTOOL_HOSTINTERFACE_H
#define HYLNTOOL_HOSTINTERFACE_H

#include <string>

#include "HYLNTool_Export.h"
#include "HYLNTool_NotesAPI.h"

// The four callback slots the host fills. Empty until set.
extern HYLN_EXPORT void (*pLogCallback)(const char* function, int level, const char* file,
                                        int line, const char* text, ...);
extern HYLN_EXPORT bool (*pJobQuitCallback)();
extern HYLN_EXPORT bool (*pSendMsgCallback)(char* message);
extern HYLN_EXPORT bool (*pCheckConnectionCallback)();

HYLN_EXPORT void SetLogCallback(void (*cb)(const char*, int, const char*, int, const char*, ...));
HYLN_EXPORT void LogMessage(const char* function, int level, const char* file, int line,
                            const char* format, ...) __attribute__((format(printf, 5, 6)));
HYLN_EXPORT void SetJobQuitCallback(bool (*cb)());
// true = stop the job; true as well when no callback is installed.
HYLN_EXPORT bool QuitJob();
HYLN_EXPORT void SetSendMsgCallback(bool (*cb)(char*));
// true = the message could not be delivered; true as well when no callback is installed.
HYLN_EXPORT bool SendDBMessage(char* message);
HYLN_EXPORT void SetCheckConnectionCallback(bool (*cb)());
// true = the host session is gone; false when no callback is installed.
HYLN_EXPORT bool CheckConnection();

// One pointer type and one exported pointer per Domino C API entry point.
#define HY_ENTRY(ret, name, params, args) \
    typedef ret(*HY_##name##_t) params;   \
    extern HYLN_EXPORT HY_##name##_t HY_##name;
#include "HYLNTool_EntryPoints.def"
#undef HY_ENTRY

// Loads <installDir>/notes/latest/linux/libnotes.so and resolves every entry.
HYLN_EXPORT bool loadNotesFunctions(std::string installDir);

#endif
