#include <cmath>
#include <cstring>
#include <map>

#include <gtest/gtest.h>

#include "KestruneKit/SystemStats/SMCReader.h"

namespace kestrune {
namespace {

std::optional<double> decode(std::string_view type, std::vector<uint8_t> bytes) { return SMCDecoder::decode(type, bytes); }

TEST(SMCDecoder, DecodesEveryTypeAndRejectsOddSizes)
{
    EXPECT_EQ(decode("sp78", { 0x1A, 0x80 }), 26.5);
    EXPECT_EQ(decode("sp78", { 0xFF, 0x00 }), -1.0);
    EXPECT_EQ(decode("fpe2", { 0x0F, 0xA0 }), 1000.0);
    EXPECT_EQ(decode("fp88", { 0x01, 0x80 }), 1.5);
    EXPECT_EQ(decode("fp87", { 0x01, 0x80 }), std::nullopt);
    EXPECT_EQ(decode("sp88", { 0x01, 0x80 }), std::nullopt);
    EXPECT_EQ(decode("spb4", { 0x00, 0x30 }), 3.0);
    EXPECT_EQ(decode("spx8", { 0x00, 0x30 }), std::nullopt);
    EXPECT_EQ(decode("sp78", { 0x1A }), std::nullopt);
    EXPECT_EQ(decode("ui8 ", { 200 }), 200);
    EXPECT_EQ(decode("ui8", { 200 }), std::nullopt) << "the trailing blank is part of the type";
    EXPECT_EQ(decode("flag", { 1 }), 1);
    EXPECT_EQ(decode("si8 ", { 0xFE }), -2);
    EXPECT_EQ(decode("ui16", { 0x12, 0x34 }), 0x1234);
    EXPECT_EQ(decode("ui16", { 0x12, 0x34, 0x56 }), std::nullopt);
    EXPECT_EQ(decode("si16", { 0xFF, 0xFE }), -2);
    EXPECT_EQ(decode("ui32", { 0x00, 0x01, 0x00, 0x00 }), 65536);
    float value = 42.25f, nan = std::nanf("");
    std::vector<uint8_t> floatBytes(4), nanBytes(4);
    std::memcpy(floatBytes.data(), &value, 4);
    std::memcpy(nanBytes.data(), &nan, 4);
    EXPECT_EQ(decode("flt ", floatBytes), 42.25);
    EXPECT_EQ(decode("flt ", nanBytes), std::nullopt);
    EXPECT_EQ(decode("abcd", { 1, 2 }), std::nullopt);
}

// Answers like the controller's user client: key information (command 9) and reads (command 5)
// for the keys it holds; a set result byte for any other key.
class StandInController final : public SMCConnection {
public:
    struct Key {
        uint32_t size;
        std::string type;
        std::vector<uint8_t> bytes;
    };
    std::map<uint32_t, Key> keys;
    int calls = 0;
    size_t replySize = 80;
    int status = 0;

    int call(uint32_t selector, const SMCRecord& input, SMCRecord& output, size_t& outputSize) override
    {
        ++calls;
        EXPECT_EQ(selector, SMCReader::structSelector);
        EXPECT_EQ(outputSize, 80u);
        uint32_t code = 0;
        std::memcpy(&code, input.data(), 4);
        auto key = keys.find(code);
        output.fill(0);
        if (key == keys.end()) {
            output[SMCReader::resultOffset] = 0x84;
        } else if (input[SMCReader::commandOffset] == SMCReader::readKeyInfo) {
            std::memcpy(output.data() + SMCReader::sizeOffset, &key->second.size, 4);
            uint32_t type = SMCReader::code(key->second.type);
            std::memcpy(output.data() + SMCReader::typeOffset, &type, 4);
        } else if (input[SMCReader::commandOffset] == SMCReader::readBytes) {
            uint32_t size = 0;
            std::memcpy(&size, input.data() + SMCReader::sizeOffset, 4);
            EXPECT_EQ(size, key->second.size);
            std::memcpy(output.data() + SMCReader::dataOffset, key->second.bytes.data(), std::min<size_t>(key->second.bytes.size(), 32));
        }
        outputSize = replySize;
        return status;
    }
};

TEST(SMCReader, ReadsKeysThroughTheRecordAndCachesTheirDescriptions)
{
    auto owned = std::make_unique<StandInController>();
    auto& controller = *owned;
    controller.keys[SMCReader::code("TC0P")] = { 2, "sp78", { 0x1A, 0x80 } };
    controller.keys[SMCReader::code("FNum")] = { 1, "ui8 ", { 2 } };
    controller.keys[SMCReader::code("BAD0")] = { 0, "ui8 ", {} };
    controller.keys[SMCReader::code("BAD1")] = { 33, "ui8 ", {} };
    SMCReader reader(std::move(owned));

    EXPECT_EQ(reader.read("TC0P"), 26.5);
    EXPECT_EQ(reader.read("FNum"), 2);
    EXPECT_EQ(controller.calls, 4);
    EXPECT_EQ(reader.read("TC0P"), 26.5);
    EXPECT_EQ(controller.calls, 5) << "the key's description is cached";
    EXPECT_EQ((reader.keyInfo("TC0P")), (SMCReader::KeyInfo { 2, "sp78" }));

    EXPECT_EQ(reader.read("BAD0"), std::nullopt) << "a size of 0";
    EXPECT_EQ(reader.read("BAD1"), std::nullopt) << "a size over 32";
    EXPECT_EQ(reader.read("NONE"), std::nullopt) << "a non-zero result byte";
    controller.replySize = 79;
    EXPECT_EQ(reader.read("FNum"), std::nullopt) << "a short reply";
    controller.replySize = 80;
    controller.status = 1;
    EXPECT_EQ(reader.read("FNum"), std::nullopt) << "a failing call";
    controller.status = 0;
    EXPECT_EQ(reader.read("FNum"), 2);

    reader.close();
    EXPECT_EQ(reader.read("FNum"), std::nullopt) << "a closed reader answers nothing";
    EXPECT_EQ(SMCReader::open(), nullptr) << "no controller on this machine";
}

} // namespace
} // namespace kestrune
