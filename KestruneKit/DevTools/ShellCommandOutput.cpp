#include "KestruneKit/DevTools/ShellCommandOutput.h"

#include <array>
#include <cstdint>

namespace kestrune {

namespace {

constexpr unsigned char escape = 27;
constexpr unsigned char bell = 7;

// Bytes that are appended as they are: tab and printable ASCII.
constexpr std::array<bool, 256> plainTable = [] {
    std::array<bool, 256> table {};
    table['\t'] = true;
    for (int c = 0x20; c < 0x7F; ++c)
        table[static_cast<size_t>(c)] = true;
    return table;
}();

// The length of the UTF-8 sequence starting at `p`: `valid` tells whether it is one whole
// scalar; when not, the length is that of its maximal invalid subpart (at least 1).
size_t sequenceLength(const unsigned char* p, size_t available, bool& valid)
{
    unsigned char lead = p[0];
    valid = false;
    if (lead < 0x80) {
        valid = true;
        return 1;
    }
    size_t need;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        need = 1;
    } else if (lead == 0xE0) {
        need = 2;
        low = 0xA0;
    } else if ((lead >= 0xE1 && lead <= 0xEC) || lead == 0xEE || lead == 0xEF) {
        need = 2;
    } else if (lead == 0xED) {
        need = 2;
        high = 0x9F;
    } else if (lead == 0xF0) {
        need = 3;
        low = 0x90;
    } else if (lead >= 0xF1 && lead <= 0xF3) {
        need = 3;
    } else if (lead == 0xF4) {
        need = 3;
        high = 0x8F;
    } else {
        return 1;
    }
    if (available < 2 || p[1] < low || p[1] > high)
        return 1;
    for (size_t k = 2; k <= need; ++k) {
        if (k >= available || p[k] < 0x80 || p[k] > 0xBF)
            return k;
    }
    valid = true;
    return need + 1;
}

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

} // namespace

std::string ShellCommandOutput::clean(std::string_view text)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const size_t n = text.size();
    std::string out;
    out.reserve(n);
    // The current line is the tail of `out` from `lineStart`: a carriage return followed by
    // visible text cuts it back instead of keeping a second buffer.
    size_t lineStart = 0;
    bool returnPending = false;

    auto beginVisible = [&] {
        if (returnPending) {
            out.resize(lineStart);
            returnPending = false;
        }
    };

    size_t i = 0;
    while (i < n) {
        unsigned char c = bytes[i];
        if (plainTable[c] || c >= 0x80) {
            // The longest run of visible text: printable ASCII, tab and whole UTF-8 scalars.
            size_t j = i;
            while (j < n) {
                unsigned char b = bytes[j];
                if (plainTable[b]) {
                    ++j;
                    continue;
                }
                if (b < 0x80)
                    break;
                bool valid;
                size_t length = sequenceLength(bytes + j, n - j, valid);
                if (!valid)
                    break;
                j += length;
            }
            if (j > i) {
                beginVisible();
                out.append(text.data() + i, j - i);
                i = j;
                continue;
            }
            // An invalid sequence: one replacement character for its maximal subpart.
            bool valid;
            size_t length = sequenceLength(bytes + i, n - i, valid);
            beginVisible();
            out.append(replacementCharacter);
            i += length;
            continue;
        }

        switch (c) {
        case '\n':
            out.push_back('\n');
            lineStart = out.size();
            returnPending = false;
            ++i;
            break;
        case '\r':
            returnPending = true;
            ++i;
            break;
        case '\b':
            if (out.size() > lineStart) {
                while (out.size() > lineStart + 1 && isContinuation(out.back()))
                    out.pop_back();
                out.pop_back();
            }
            ++i;
            break;
        case escape: {
            if (i + 1 >= n) {
                i = n;
                break;
            }
            unsigned char kind = bytes[i + 1];
            if (kind == '[') {
                size_t k = i + 2;
                while (k < n && !(bytes[k] >= 64 && bytes[k] <= 126))
                    ++k;
                i = k < n ? k + 1 : n;
            } else if (kind == ']') {
                size_t k = i + 2;
                i = n;
                for (; k < n; ++k) {
                    if (bytes[k] == bell) {
                        i = k + 1;
                        break;
                    }
                    if (bytes[k] == escape && k + 1 < n && bytes[k + 1] == '\\') {
                        i = k + 2;
                        break;
                    }
                }
            } else {
                bool valid;
                i += 1 + sequenceLength(bytes + i + 1, n - i - 1, valid);
            }
            break;
        }
        default:
            // Every other control character, DEL included.
            ++i;
            break;
        }
    }
    return out;
}

std::string ShellCommandOutput::lastLine(std::string_view cleaned, size_t limit)
{
    auto isBlank = [](std::string_view line) {
        return line.find_first_not_of(" \t") == std::string_view::npos;
    };
    std::string_view line;
    size_t end = cleaned.size();
    for (;;) {
        size_t start = end == 0 ? 0 : cleaned.rfind('\n', end - 1);
        start = start == std::string_view::npos ? 0 : (end == 0 ? 0 : start + 1);
        line = cleaned.substr(start, end - start);
        if (!isBlank(line) || start == 0)
            break;
        end = start - 1;
    }
    if (isBlank(line))
        return {};
    // Cut at a scalar boundary.
    size_t characters = 0;
    size_t cut = 0;
    while (cut < line.size() && characters < limit) {
        ++cut;
        while (cut < line.size() && isContinuation(line[cut]))
            ++cut;
        ++characters;
    }
    return std::string(line.substr(0, cut));
}

} // namespace kestrune
