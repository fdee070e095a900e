// The status object every operation of the library returns.
#ifndef HYLNTOOL_ERROR_H
#define HYLNTOOL_ERROR_H

#include <string>

#include "HYLNTool_Export.h"

class HYLN_EXPORT HyLNError {
public:
    HyLNError();
    HyLNError(unsigned short code, std::string message);
    HyLNError(const HyLNError& other);
    ~HyLNError();
    HyLNError& operator=(const HyLNError& other);

    bool IsErrorSet();
    unsigned short GetErrorCode();
    void SetErrorCode(unsigned short code);
    std::string GetMessage();
    void SetMessage(std::string text);
    // The library's own failures: code 0xFFFF with a message of its own.
    void SetCustomMessage(std::string text);
    void SetCustomMessage(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // A Domino STATUS with the runtime's text for it; 0 leaves message and flag alone.
    void SetError(unsigned short code);
    void SetStatus();

    unsigned short errorCode;
    std::string message;
    bool errorSet;
    bool notesError; // false when errorCode is the library's own 0xFFFF
};

#endif
