// OSTranslate and the LMBCS helpers, on ICU's LMBCS converter. The platform
// ("native") character set of this runtime is UTF-8, so modes 0/1 equal modes 24/22.
// Invalid input fails the conversion instead of being replaced.
#include "translate.h"

#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <cstring>
#include <string>

#include "sim_core.h"

namespace {

using Utf16 = std::u16string;

// One converter per thread; a converter keeps state between calls.
class LmbcsConverter {
public:
    LmbcsConverter()
    {
        UErrorCode error = U_ZERO_ERROR;
        converter_ = ucnv_open("LMBCS-1", &error);
        if (U_FAILURE(error))
            converter_ = nullptr;
        if (converter_ == nullptr)
            return;
        ucnv_setToUCallBack(converter_, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
        ucnv_setFromUCallBack(converter_, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    }
    ~LmbcsConverter()
    {
        if (converter_ != nullptr)
            ucnv_close(converter_);
    }
    LmbcsConverter(const LmbcsConverter&) = delete;
    LmbcsConverter& operator=(const LmbcsConverter&) = delete;
    UConverter* get() const { return converter_; }

private:
    UConverter* converter_ = nullptr;
};

UConverter* lmbcs()
{
    thread_local LmbcsConverter converter;
    return converter.get();
}

// Runs an ICU "write into a buffer of this capacity" call, growing the buffer once
// when the first estimate was too small.
template <class Text, class Convert>
bool convertInto(Text& out, size_t estimate, Convert convert)
{
    for (int attempt = 0; attempt < 2; ++attempt) {
        out.resize(estimate);
        UErrorCode error = U_ZERO_ERROR;
        int32_t length = convert(&out[0], static_cast<int32_t>(out.size()), error);
        if (error == U_BUFFER_OVERFLOW_ERROR) {
            estimate = static_cast<size_t>(length);
            continue;
        }
        if (U_FAILURE(error))
            return false;
        out.resize(static_cast<size_t>(length));
        return true;
    }
    return false;
}

bool lmbcsToUtf16(const std::string& in, Utf16& out)
{
    UConverter* converter = lmbcs();
    return converter != nullptr && convertInto(out, in.size() + 1, [&](char16_t* buffer, int32_t capacity, UErrorCode& error) {
               return ucnv_toUChars(converter, buffer, capacity, in.data(), static_cast<int32_t>(in.size()), &error);
           });
}

bool utf16ToLmbcs(const Utf16& in, std::string& out)
{
    UConverter* converter = lmbcs();
    return converter != nullptr && convertInto(out, in.size() * 3 + 1, [&](char* buffer, int32_t capacity, UErrorCode& error) {
               return ucnv_fromUChars(converter, buffer, capacity, in.data(), static_cast<int32_t>(in.size()), &error);
           });
}

bool utf8ToUtf16(const std::string& in, Utf16& out)
{
    return convertInto(out, in.size() + 1, [&](char16_t* buffer, int32_t capacity, UErrorCode& error) {
        int32_t length = 0;
        u_strFromUTF8(buffer, capacity, &length, in.data(), static_cast<int32_t>(in.size()), &error);
        return length;
    });
}

bool utf16ToUtf8(const Utf16& in, std::string& out)
{
    return convertInto(out, in.size() * 3 + 1, [&](char* buffer, int32_t capacity, UErrorCode& error) {
        int32_t length = 0;
        u_strToUTF8(buffer, capacity, &length, in.data(), static_cast<int32_t>(in.size()), &error);
        return length;
    });
}

bool changeCase(const std::string& in, std::string& out, bool upper)
{
    Utf16 text;
    Utf16 mapped;
    return lmbcsToUtf16(in, text) &&
           convertInto(mapped, text.size() + 1,
                       [&](char16_t* buffer, int32_t capacity, UErrorCode& error) {
                           auto map = upper ? u_strToUpper : u_strToLower;
                           return map(buffer, capacity, text.data(), static_cast<int32_t>(text.size()), "", &error);
                       }) &&
           utf16ToLmbcs(mapped, out);
}

// UTF-16 in host byte order, as modes 20 and 23 exchange it.
Utf16 utf16FromBytes(const std::string& bytes)
{
    Utf16 text(bytes.size() / 2, u'\0');
    std::memcpy(&text[0], bytes.data(), text.size() * 2);
    return text;
}

std::string bytesFromUtf16(const Utf16& text)
{
    return std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2);
}

bool isUtf16Mode(WORD mode) { return mode == OS_TRANSLATE_UNICODE_TO_LMBCS; }

bool translate(WORD mode, const std::string& in, std::string& out)
{
    Utf16 text;
    switch (mode) {
    case OS_TRANSLATE_NATIVE_TO_LMBCS:
    case OS_TRANSLATE_UTF8_TO_LMBCS:
        return sim::utf8ToLmbcs(in, out);
    case OS_TRANSLATE_LMBCS_TO_NATIVE:
    case OS_TRANSLATE_LMBCS_TO_UTF8:
        return sim::lmbcsToUtf8(in, out);
    case OS_TRANSLATE_LOWER_TO_UPPER:
        return changeCase(in, out, true);
    case OS_TRANSLATE_UPPER_TO_LOWER:
        return changeCase(in, out, false);
    case OS_TRANSLATE_LMBCS_TO_UNICODE:
        if (!lmbcsToUtf16(in, text))
            return false;
        out = bytesFromUtf16(text);
        return true;
    case OS_TRANSLATE_UNICODE_TO_LMBCS:
        return in.size() % 2 == 0 && utf16ToLmbcs(utf16FromBytes(in), out);
    default:
        return false;
    }
}

// InLength MAXWORD: the input ends at its terminating NUL (a 16-bit one for UTF-16).
std::string inputOf(WORD mode, const char* in, WORD length)
{
    if (length != MAXWORD)
        return std::string(in, length);
    if (!isUtf16Mode(mode))
        return std::string(in);
    size_t units = 0;
    while (in[units * 2] != '\0' || in[units * 2 + 1] != '\0')
        ++units;
    return std::string(in, units * 2);
}

// Copies `text` when it fits, then a terminator when there is room; 0 otherwise.
WORD deliver(const std::string& text, size_t terminator, char* out, WORD capacity)
{
    bool fits = !text.empty() && text.size() <= capacity;
    size_t length = fits ? text.size() : 0;
    std::memcpy(out, text.data(), length);
    if (length + terminator <= capacity)
        std::memset(out + length, 0, terminator);
    return static_cast<WORD>(length);
}

} // namespace

namespace sim {

bool utf8ToLmbcs(const std::string& utf8, std::string& lmbcs)
{
    Utf16 text;
    return utf8ToUtf16(utf8, text) && utf16ToLmbcs(text, lmbcs);
}

bool lmbcsToUtf8(const std::string& lmbcs, std::string& utf8)
{
    Utf16 text;
    return lmbcsToUtf16(lmbcs, text) && utf16ToUtf8(text, utf8);
}

} // namespace sim

WORD impl::OSTranslate(WORD TranslateMode, const char* In, WORD InLength, char* Out, WORD OutLength)
{
    if (Out == nullptr)
        return 0;
    std::string input = In != nullptr ? inputOf(TranslateMode, In, InLength) : std::string();
    std::string output;
    if (input.empty() || !translate(TranslateMode, input, output))
        output.clear();
    size_t terminator = TranslateMode == OS_TRANSLATE_LMBCS_TO_UNICODE ? 2 : 1;
    return deliver(output, terminator, Out, OutLength);
}
