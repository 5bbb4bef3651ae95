#include <gtest/gtest.h>

#include "KestruneKit/DevTools/ShellCommandOutput.h"

namespace kestrune {
namespace {

std::string clean(std::string_view bytes) { return ShellCommandOutput::clean(bytes); }

TEST(ShellCommandOutput, RebuildsLinesAsATerminalShowsThem)
{
    EXPECT_EQ(clean("abc\rxy\n"), "xy\n");
    EXPECT_EQ(clean("ab\bc"), "ac");
    EXPECT_EQ(clean("\x1b[31mred\x1b[0m"), "red");
    EXPECT_EQ(clean("\x1b]0;window title\x07visible"), "visible");
    EXPECT_EQ(clean("\x1b]8;;https://example.com\x1b\\link\x1b]8;;\x1b\\"), "link");
    // A progress bar: only its last state stays, and a trailing CR alone changes nothing.
    EXPECT_EQ(clean(" 10%\r 50%\r100%\r\ndone\n"), "100%\ndone\n");
    EXPECT_EQ(clean("a\r\n"), "a\n");
    EXPECT_EQ(clean("one\ntwo\rTWO"), "one\nTWO");
    // Backspace cannot reach back into a finished line.
    EXPECT_EQ(clean("a\n\b\bb"), "a\nb");
    EXPECT_EQ(clean("tab\there"), "tab\there");
}

TEST(ShellCommandOutput, DropsEscapesAndControlsEvenWhenCutShort)
{
    EXPECT_EQ(clean("\x1b]2;never ended"), "");
    EXPECT_EQ(clean("kept\x1b[1;3"), "kept");
    EXPECT_EQ(clean("end\x1b"), "end");
    EXPECT_EQ(clean("\x1b" "7saved\x1b" "8"), "saved");
    EXPECT_EQ(clean("a\x01\x02\x7f\x07z"), "az");
    // Only the escape and the one scalar after it go: a character-set designation leaves its last letter.
    EXPECT_EQ(clean("\x1b(Bplain"), "Bplain");
    // ESC followed by a multi-byte scalar skips the whole scalar.
    EXPECT_EQ(clean("\x1b\xc3\xa9x"), "x");
}

TEST(ShellCommandOutput, DecodesUTF8WithOneReplacementPerInvalidPart)
{
    EXPECT_EQ(clean("caf\xc3\xa9 \xe2\x9c\x93"), "caf\xc3\xa9 \xe2\x9c\x93");
    EXPECT_EQ(clean("a\xffz"), "a\xef\xbf\xbdz");
    // A truncated three-byte sequence is one maximal subpart: one replacement.
    EXPECT_EQ(clean("\xe2\x9c" "ok"), "\xef\xbf\xbdok");
    // An encoded surrogate is three separate invalid bytes.
    EXPECT_EQ(clean("\xed\xa0\x80"), "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd");
    // Backspace removes a whole scalar, not its last byte.
    EXPECT_EQ(clean("x\xc3\xa9\b"), "x");
    EXPECT_EQ(clean("\xf0\x9f\x98\x80\by"), "y");
    // The replacement character is what a carriage return overwrites too.
    EXPECT_EQ(clean("\xff\rb"), "b");
}

TEST(ShellCommandOutput, LastLineIsTheLastLineWithSomethingToShowCutAtAScalar)
{
    EXPECT_EQ(ShellCommandOutput::lastLine("first\nsecond\n"), "second");
    EXPECT_EQ(ShellCommandOutput::lastLine("first\nsecond\n\n  \n"), "second");
    EXPECT_EQ(ShellCommandOutput::lastLine("only"), "only");
    EXPECT_EQ(ShellCommandOutput::lastLine(""), "");
    EXPECT_EQ(ShellCommandOutput::lastLine("\n\n"), "");
    EXPECT_EQ(ShellCommandOutput::lastLine(std::string(200, 'x')).size(), 160u);
    std::string accents;
    for (int i = 0; i < 170; ++i)
        accents += "\xc3\xa9";
    EXPECT_EQ(ShellCommandOutput::lastLine(accents), accents.substr(0, 320));
    EXPECT_EQ(ShellCommandOutput::lastLine("abcdef", 3), "abc");
}

} // namespace
} // namespace kestrune
