#include <gtest/gtest.h>

#include "KestruneKit/DevTools/ShellCommand.h"

namespace kestrune {
namespace {

TEST(ShellCommand, EncodesAsThePlatformEncoderDoesAndDecodesStrictly)
{
    ShellCommand command;
    command.id = *Uuid::fromString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    command.name = "Build";
    command.symbol = "hammer";
    command.command = "make -j8";
    command.folder = "~/src";
    EXPECT_EQ(command.toJSON(),
              R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","name":"Build","symbol":"hammer","command":"make -j8",)"
              R"("folder":"~/src","runsInTerminal":false,"asksFirst":false})");
    EXPECT_EQ(ShellCommand::fromJSON(command.toJSON()), command);

    command.timeLimit = 90.5;
    EXPECT_TRUE(command.toJSON().ends_with(R"("asksFirst":false,"timeLimit":90.5})"));
    EXPECT_EQ(ShellCommand::fromJSON(command.toJSON()), command);

    EXPECT_EQ(ShellCommand::fromJSON(R"({"id":"not-a-uuid","name":"","symbol":"","command":"","folder":"",)"
                                     R"("runsInTerminal":false,"asksFirst":false})"),
              std::nullopt);
    EXPECT_EQ(ShellCommand::fromJSON(R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","name":"x"})"), std::nullopt);
    EXPECT_EQ(ShellCommand::fromJSON("not json"), std::nullopt);
}

TEST(ShellCommandResult, WritesDatesAsSecondsSinceTwoThousandOneAndOutcomesByName)
{
    ShellCommandResult result;
    result.outcome = ShellCommandResult::Outcome::timedOut;
    result.exitCode = 143;
    result.started = dateFromReferenceSeconds(0);
    result.ended = dateFromReferenceSeconds(784111777.5);
    result.output = "line 1\nline \"2\"";
    result.outputTrimmed = true;
    result.lastLine = "line \"2\"";
    EXPECT_EQ(result.toJSON(), R"({"outcome":"timedOut","exitCode":143,"started":0,"ended":784111777.5,)"
                               R"("output":"line 1\nline \"2\"","outputTrimmed":true,"lastLine":"line \"2\""})");
    EXPECT_EQ(ShellCommandResult::fromJSON(result.toJSON()), result);
    // 2001-01-01T00:00:00Z is 978,307,200 s after the Unix epoch.
    EXPECT_EQ(std::chrono::system_clock::to_time_t(dateFromReferenceSeconds(0)), 978307200);

    const char* names[] = { "succeeded", "failed", "stopped", "timedOut", "couldNotStart", "openedInTerminal" };
    for (const char* name : names)
        EXPECT_EQ(toString(*outcomeFromString(name)), name);
    EXPECT_EQ(outcomeFromString("crashed"), std::nullopt);
    EXPECT_EQ(ShellCommandResult::fromJSON(R"({"outcome":"crashed","exitCode":1,"started":0,"ended":0,)"
                                           R"("output":"","outputTrimmed":false,"lastLine":""})"),
              std::nullopt);
}

TEST(ShellCommandResult, NeverFailsToEncodeWhatACommandPrinted)
{
    ShellCommandResult result;
    result.output = "bad \xff byte";
    auto decoded = ShellCommandResult::fromJSON(result.toJSON());
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->output, "bad \xef\xbf\xbd byte");
}

TEST(Uuid, IsRandomVersionFourAndReadsEitherCase)
{
    Uuid a = Uuid::random(), b = Uuid::random();
    EXPECT_NE(a, b);
    std::string text = a.toString();
    EXPECT_EQ(text.size(), 36u);
    EXPECT_EQ(text[14], '4');
    EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos);
    EXPECT_EQ(text.find_first_of("abcdef"), std::string::npos);
    EXPECT_EQ(Uuid::fromString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"),
              Uuid::fromString("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"));
    EXPECT_EQ(Uuid::fromString("e621e1f8c36c495a93fc0c247a3e6e5f0000"), std::nullopt);
    EXPECT_EQ(Uuid::fromString("g621e1f8-c36c-495a-93fc-0c247a3e6e5f"), std::nullopt);
}

} // namespace
} // namespace kestrune
