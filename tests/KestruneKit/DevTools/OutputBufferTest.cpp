#include <gtest/gtest.h>

#include "KestruneKit/DevTools/OutputBuffer.h"

namespace kestrune {
namespace {

// Lines of 64 bytes, numbered, so a test can tell which ones were kept.
std::string numberedLines(int first, int count)
{
    std::string text;
    for (int i = first; i < first + count; ++i) {
        std::string line = "line " + std::to_string(i);
        line.resize(63, '.');
        text += line + "\n";
    }
    return text;
}

TEST(OutputBuffer, StaysWithinItsLimitHoweverMuchIsAppended)
{
    OutputBuffer buffer;
    size_t largest = 0;
    for (int chunk = 0; chunk < 4096; ++chunk) {
        buffer.append(numberedLines(chunk * 64, 64));
        largest = std::max(largest, buffer.size());
    }
    EXPECT_LE(largest, OutputBuffer::appendLimit);

    auto final = buffer.finish();
    EXPECT_TRUE(final.trimmed);
    EXPECT_LE(final.bytes.size(), OutputBuffer::finalLimit);
    EXPECT_GT(final.bytes.size(), OutputBuffer::finalLimit - OutputBuffer::lineSearch);
    // The newest output is kept, and the text starts at a line boundary.
    EXPECT_TRUE(final.bytes.starts_with("line "));
    EXPECT_TRUE(final.bytes.ends_with(numberedLines(4096 * 64 - 1, 1)));

    buffer.append("late");
    EXPECT_TRUE(buffer.isClosed());
    EXPECT_EQ(buffer.size(), 0u);
}

TEST(OutputBuffer, KeepsSmallOutputWholeAndCutsLongLinesWithoutABoundary)
{
    OutputBuffer small;
    small.append("no newline at the start");
    small.append(std::string(OutputBuffer::finalLimit - 100, 'x'));
    auto kept = small.finish();
    EXPECT_FALSE(kept.trimmed);
    EXPECT_TRUE(kept.bytes.starts_with("no newline at the start"));

    // No newline within the first 4,096 bytes of what is kept: exactly the newest 262,144 bytes.
    OutputBuffer oneLine;
    oneLine.append("head\n");
    oneLine.append(std::string(OutputBuffer::finalLimit + 10, 'y'));
    auto cut = oneLine.finish();
    EXPECT_TRUE(cut.trimmed);
    EXPECT_EQ(cut.bytes, std::string(OutputBuffer::finalLimit, 'y'));

    // One huge chunk is cut on arrival.
    OutputBuffer huge;
    huge.append(std::string(OutputBuffer::appendLimit * 3, 'z'));
    EXPECT_EQ(huge.size(), OutputBuffer::keptOnTrim);
}

} // namespace
} // namespace kestrune
