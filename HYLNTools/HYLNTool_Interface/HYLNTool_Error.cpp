#include "HYLNTool_Error.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

#include "HYLNTool_NotesUtilities.h"

namespace {
const unsigned short kLibraryErrorCode = 0xFFFF;
}

HyLNError::HyLNError() : errorCode(0), errorSet(false), notesError(true) {}

HyLNError::HyLNError(unsigned short code, std::string text)
    : errorCode(code), message(std::move(text)), errorSet(true), notesError(true)
{
}

HyLNError::HyLNError(const HyLNError& other)
    : errorCode(other.errorCode), message(other.message), errorSet(other.errorSet),
      notesError(other.notesError)
{
}

HyLNError::~HyLNError() {}

HyLNError& HyLNError::operator=(const HyLNError& other)
{
    errorCode = other.errorCode;
    message = other.message;
    errorSet = other.errorSet;
    notesError = other.notesError;
    return *this;
}

bool HyLNError::IsErrorSet() { return errorSet; }

unsigned short HyLNError::GetErrorCode() { return errorCode; }

void HyLNError::SetErrorCode(unsigned short code) { errorCode = code; }

std::string HyLNError::GetMessage() { return message; }

void HyLNError::SetMessage(std::string text)
{
    message = std::move(text);
    errorSet = true;
}

void HyLNError::SetCustomMessage(std::string text)
{
    SetMessage(std::move(text));
    notesError = false;
    errorCode = kLibraryErrorCode;
}

void HyLNError::SetCustomMessage(const char* format, ...)
{
    char text[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    SetCustomMessage(std::string(text));
}

void HyLNError::SetError(unsigned short code)
{
    notesError = true;
    errorCode = code;
    if (code == 0)
        return;
    SetStatus();
    SetMessage(HyLNUtilities::GetNotesErrorMsg(code));
}

void HyLNError::SetStatus() { errorSet = true; }
