// OSTranslate: LMBCS bytes, lengths, truncation and the UTF-16 and case modes.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "sim_core.h"
#include "translate.h"

namespace {

const std::string kUtf8 = "Caf\xC3\xA9 \xE2\x82\xAC \xE6\x97\xA5\n"; // "Café € 日\n"
const std::string kLmbcs("\x43\x61\x66\x82\x20\x03\x80\x20\x10\x93\xFA\x0A", 12);

// Runs OSTranslate into a buffer of `capacity` bytes pre-filled with '#'.
std::string run(WORD mode, const std::string& in, WORD capacity, WORD& written, WORD inLength)
{
    std::string out(capacity + 4, '#');
    written = OSTranslate(mode, in.c_str(), inLength, &out[0], capacity);
    return out;
}

std::string translated(WORD mode, const std::string& in)
{
    WORD written = 0;
    std::string out = run(mode, in, 512, written, static_cast<WORD>(in.size()));
    return out.substr(0, written);
}

} // namespace

TEST(SimCoreTranslate, Utf8AndLmbcsMatchTheReferenceBytes)
{
    EXPECT_EQ(translated(OS_TRANSLATE_UTF8_TO_LMBCS, kUtf8), kLmbcs);
    EXPECT_EQ(translated(OS_TRANSLATE_NATIVE_TO_LMBCS, kUtf8), kLmbcs) << "native is UTF-8";
    EXPECT_EQ(translated(OS_TRANSLATE_LMBCS_TO_UTF8, kLmbcs), kUtf8);
    EXPECT_EQ(translated(OS_TRANSLATE_LMBCS_TO_NATIVE, kLmbcs), kUtf8);
    std::string viaHelper;
    ASSERT_TRUE(sim::lmbcsToUtf8(kLmbcs, viaHelper));
    EXPECT_EQ(viaHelper, kUtf8);
}

TEST(SimCoreTranslate, OutputThatDoesNotFitGivesZero)
{
    WORD written = 0;
    std::string out = run(OS_TRANSLATE_UTF8_TO_LMBCS, kUtf8, 11, written, MAXWORD);
    EXPECT_EQ(written, 0);
    EXPECT_EQ(out[0], '\0');
    out = run(OS_TRANSLATE_UTF8_TO_LMBCS, kUtf8, 12, written, MAXWORD);
    EXPECT_EQ(written, 12);
    EXPECT_EQ(out.substr(0, 13), kLmbcs + "#") << "no terminator without room for it";
    out = run(OS_TRANSLATE_UTF8_TO_LMBCS, kUtf8, 13, written, MAXWORD);
    EXPECT_EQ(written, 12);
    EXPECT_EQ(out[12], '\0');
}

TEST(SimCoreTranslate, EmptyInvalidOrUnsupportedInputGivesZero)
{
    WORD written = 9;
    run(OS_TRANSLATE_UTF8_TO_LMBCS, "", 16, written, MAXWORD);
    EXPECT_EQ(written, 0);
    run(OS_TRANSLATE_UTF8_TO_LMBCS, "ab\xC3(", 16, written, 4);
    EXPECT_EQ(written, 0) << "broken UTF-8";
    run(5, "abc", 16, written, 3);
    EXPECT_EQ(written, 0) << "unaccenting is not provided";
    run(OS_TRANSLATE_UTF8_TO_LMBCS, "abcdef", 16, written, 3);
    EXPECT_EQ(written, 3) << "InLength counts bytes, not up to the NUL";
    EXPECT_EQ(OSTranslate(OS_TRANSLATE_UTF8_TO_LMBCS, "abc", 3, nullptr, 16), 0);
}

TEST(SimCoreTranslate, Utf16AndCaseModes)
{
    std::u16string wide = u"Caf\u00E9 \u20AC \u65E5\n";
    std::string wideBytes(reinterpret_cast<const char*>(wide.data()), wide.size() * 2);
    EXPECT_EQ(translated(OS_TRANSLATE_LMBCS_TO_UNICODE, kLmbcs), wideBytes);
    EXPECT_EQ(translated(OS_TRANSLATE_UNICODE_TO_LMBCS, wideBytes), kLmbcs);

    std::string terminated = wideBytes + std::string(2, '\0');
    WORD written = 0;
    char out[64];
    written = OSTranslate(OS_TRANSLATE_UNICODE_TO_LMBCS, terminated.data(), MAXWORD, out, sizeof out);
    EXPECT_EQ(std::string(out, written), kLmbcs);
    EXPECT_EQ(OSTranslate(OS_TRANSLATE_UNICODE_TO_LMBCS, wideBytes.data(), 3, out, sizeof out), 0) << "odd length";

    EXPECT_EQ(translated(OS_TRANSLATE_LOWER_TO_UPPER, "caf\x82"), "CAF\x90"); // é -> É in code page 850
    EXPECT_EQ(translated(OS_TRANSLATE_UPPER_TO_LOWER, "CAF\x90 X"), "caf\x82 x");
}
