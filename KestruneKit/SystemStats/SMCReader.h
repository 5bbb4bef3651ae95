#pragma once
// OVERVIEW
// The Mac's system management controller, read one key at a time. SMCDecoder turns a key's bytes
// into a number by its four-character data type; SMCReader speaks the controller's 80-byte
// record over an SMCConnection (IOKit's user client on macOS; a stand-in controller in tests),
// caches each key's description, and answers nothing once closed.
//
// TYPICAL USAGE
//   if (auto reader = SMCReader::open())           // none where there is no controller
//       std::optional<double> fans = reader->read("FNum");
//
// SMCReader may be used from any thread: one lock guards its connection and its cache, so that
// one exchange and one cache update happen at a time.

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kestrune {

struct SMCDecoder {
    // The number the bytes hold for this type; none for an unknown type, a size that does not
    // match it, or a result that is not finite.
    [[nodiscard]] static std::optional<double> decode(std::string_view type, std::span<const uint8_t> bytes);
};

using SMCRecord = std::array<uint8_t, 80>;

// The controller's one structure call: 80 bytes in, 80 bytes out, a return code (0 is success)
// and the size of what came back.
class SMCConnection {
public:
    virtual ~SMCConnection() = default;
    [[nodiscard]] virtual int call(uint32_t selector, const SMCRecord& input, SMCRecord& output, size_t& outputSize) = 0;
};

class SMCReader {
public:
    struct KeyInfo {
        uint32_t size = 0;
        std::string type;
        bool operator==(const KeyInfo&) const = default;
    };

    // Record offsets and commands.
    static constexpr size_t keyOffset = 0, sizeOffset = 28, typeOffset = 32, resultOffset = 40, commandOffset = 42, dataOffset = 48;
    static constexpr uint8_t readKeyInfo = 9, readBytes = 5;
    static constexpr uint32_t structSelector = 2;

    explicit SMCReader(std::unique_ptr<SMCConnection> connection) : connection_(std::move(connection)) {}
    // The machine's own controller; none where there is none (and always on Linux).
    [[nodiscard]] static std::unique_ptr<SMCReader> open();

    void close();
    [[nodiscard]] std::optional<KeyInfo> keyInfo(std::string_view key);
    [[nodiscard]] std::optional<double> read(std::string_view key);

    // A four-character code as the controller takes it: the first character in the most
    // significant byte of a native 32-bit integer.
    [[nodiscard]] static uint32_t code(std::string_view fourCharacters);

private:
    [[nodiscard]] std::optional<KeyInfo> keyInfoLocked(std::string_view key);
    [[nodiscard]] bool exchange(const SMCRecord& request, SMCRecord& reply);

    std::unique_ptr<SMCConnection> connection_;
    std::map<std::string, KeyInfo, std::less<>> infos_;
    std::mutex lock_;
};

} // namespace kestrune
