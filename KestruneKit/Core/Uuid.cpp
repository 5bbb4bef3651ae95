#include "KestruneKit/Core/Uuid.h"

#include <mutex>
#include <random>

namespace kestrune {

Uuid Uuid::random()
{
    // One generator seeded once from the system's entropy: a fresh std::random_device per call
    // costs a system call and may block on some systems.
    static std::mutex mutex;
    static std::mt19937_64 generator { [] {
        std::random_device device;
        std::seed_seq seed { device(), device(), device(), device(), device(), device(), device(), device() };
        return std::mt19937_64(seed);
    }() };

    Uuid uuid;
    {
        std::lock_guard lock(mutex);
        for (size_t i = 0; i < 16; i += 8) {
            std::uint64_t value = generator();
            for (size_t j = 0; j < 8; ++j)
                uuid.bytes_[i + j] = static_cast<std::uint8_t>(value >> (8 * j));
        }
    }
    uuid.bytes_[6] = static_cast<std::uint8_t>((uuid.bytes_[6] & 0x0F) | 0x40);
    uuid.bytes_[8] = static_cast<std::uint8_t>((uuid.bytes_[8] & 0x3F) | 0x80);
    return uuid;
}

std::optional<Uuid> Uuid::fromString(std::string_view text)
{
    if (text.size() != 36)
        return std::nullopt;
    Uuid uuid;
    size_t byte = 0;
    for (size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-')
                return std::nullopt;
            ++i;
            continue;
        }
        auto nibble = [](char c) -> int {
            if (c >= '0' && c <= '9')
                return c - '0';
            if (c >= 'a' && c <= 'f')
                return c - 'a' + 10;
            if (c >= 'A' && c <= 'F')
                return c - 'A' + 10;
            return -1;
        };
        int high = nibble(text[i]);
        int low = nibble(text[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        uuid.bytes_[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    return uuid;
}

std::string Uuid::toString() const
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text += '-';
        text += digits[bytes_[i] >> 4];
        text += digits[bytes_[i] & 0x0F];
    }
    return text;
}

bool Uuid::isNil() const
{
    for (auto b : bytes_)
        if (b != 0)
            return false;
    return true;
}

} // namespace kestrune
