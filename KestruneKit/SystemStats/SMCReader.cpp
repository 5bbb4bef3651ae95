#include "KestruneKit/SystemStats/SMCReader.h"

#include <cmath>
#include <cstring>

namespace kestrune {

namespace {

bool isHex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

int hexValue(char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; }

uint32_t bigEndian(std::span<const uint8_t> bytes)
{
    uint32_t value = 0;
    for (uint8_t byte : bytes)
        value = (value << 8) | byte;
    return value;
}

void put32(SMCRecord& record, size_t offset, uint32_t value) { std::memcpy(record.data() + offset, &value, 4); }

uint32_t get32(const SMCRecord& record, size_t offset)
{
    uint32_t value = 0;
    std::memcpy(&value, record.data() + offset, 4);
    return value;
}

} // namespace

std::optional<double> SMCDecoder::decode(std::string_view type, std::span<const uint8_t> bytes)
{
    auto finite = [](double value) { return std::isfinite(value) ? std::optional(value) : std::nullopt; };
    size_t size = bytes.size();
    if (type == "flt ") {
        if (size != 4)
            return std::nullopt;
        float value = 0;
        std::memcpy(&value, bytes.data(), 4);
        return finite(value);
    }
    if (type == "ui8 " || type == "flag")
        return size == 1 ? std::optional<double>(bytes[0]) : std::nullopt;
    if (type == "ui16")
        return size == 2 ? std::optional<double>(bigEndian(bytes)) : std::nullopt;
    if (type == "ui32")
        return size == 4 ? std::optional<double>(bigEndian(bytes)) : std::nullopt;
    if (type == "si8 ")
        return size == 1 ? std::optional<double>(static_cast<int8_t>(bytes[0])) : std::nullopt;
    if (type == "si16")
        return size == 2 ? std::optional<double>(static_cast<int16_t>(bigEndian(bytes))) : std::nullopt;

    // Fixed point: "fpIF" unsigned with I + F = 16, "spIF" signed with I + F = 15.
    if (type.size() != 4 || size != 2 || !isHex(type[2]) || !isHex(type[3]))
        return std::nullopt;
    int integer = hexValue(type[2]), fraction = hexValue(type[3]);
    double scale = std::ldexp(1.0, fraction);
    if (type.starts_with("fp") && integer + fraction == 16)
        return finite(static_cast<double>(bigEndian(bytes)) / scale);
    if (type.starts_with("sp") && integer + fraction == 15)
        return finite(static_cast<double>(static_cast<int16_t>(bigEndian(bytes))) / scale);
    return std::nullopt;
}

uint32_t SMCReader::code(std::string_view fourCharacters)
{
    uint32_t value = 0;
    for (size_t index = 0; index < 4; ++index)
        value = (value << 8) | static_cast<uint8_t>(index < fourCharacters.size() ? fourCharacters[index] : ' ');
    return value;
}

void SMCReader::close()
{
    std::lock_guard guard(lock_);
    connection_.reset();
}

bool SMCReader::exchange(const SMCRecord& request, SMCRecord& reply)
{
    if (!connection_)
        return false;
    reply.fill(0);
    size_t size = reply.size();
    return connection_->call(structSelector, request, reply, size) == 0 && size == reply.size() && reply[resultOffset] == 0;
}

std::optional<SMCReader::KeyInfo> SMCReader::keyInfo(std::string_view key)
{
    std::lock_guard guard(lock_);
    return keyInfoLocked(key);
}

std::optional<SMCReader::KeyInfo> SMCReader::keyInfoLocked(std::string_view key)
{
    if (!connection_)
        return std::nullopt;
    if (auto cached = infos_.find(key); cached != infos_.end())
        return cached->second;
    SMCRecord request {};
    SMCRecord reply {};
    put32(request, keyOffset, code(key));
    request[commandOffset] = readKeyInfo;
    if (!exchange(request, reply))
        return std::nullopt;
    KeyInfo info;
    info.size = get32(reply, sizeOffset);
    uint32_t type = get32(reply, typeOffset);
    for (int shift = 24; shift >= 0; shift -= 8)
        info.type += static_cast<char>((type >> shift) & 0xff);
    if (info.size < 1 || info.size > 32)
        return std::nullopt;
    infos_.emplace(std::string(key), info);
    return info;
}

std::optional<double> SMCReader::read(std::string_view key)
{
    std::lock_guard guard(lock_);
    auto info = keyInfoLocked(key);
    if (!info)
        return std::nullopt;
    SMCRecord request {};
    SMCRecord reply {};
    put32(request, keyOffset, code(key));
    put32(request, sizeOffset, info->size);
    request[commandOffset] = readBytes;
    if (!exchange(request, reply))
        return std::nullopt;
    return SMCDecoder::decode(info->type, std::span<const uint8_t>(reply.data() + dataOffset, info->size));
}

} // namespace kestrune
