#include "KestruneKit/Preferences/Preferences.h"

#include <cstring>

#include <CoreFoundation/CoreFoundation.h>

namespace kestrune {

namespace {

CFStringRef text(std::string_view value)
{
    return CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(value.data()), static_cast<CFIndex>(value.size()),
                                   kCFStringEncodingUTF8, false);
}

std::string string(CFStringRef value)
{
    CFIndex length = CFStringGetMaximumSizeForEncoding(CFStringGetLength(value), kCFStringEncodingUTF8) + 1;
    std::string buffer(static_cast<size_t>(length), '\0');
    if (!CFStringGetCString(value, buffer.data(), length, kCFStringEncodingUTF8))
        return {};
    buffer.resize(std::strlen(buffer.c_str()));
    return buffer;
}

// The standard preferences system, through CFPreferences on the application's domain.
class SystemPreferences final : public Preferences {
public:
    explicit SystemPreferences(const std::string& domain) : domain_(text(domain)) {}
    ~SystemPreferences() override { CFRelease(domain_); }

    std::optional<PreferenceValue> value(std::string_view key) const override
    {
        CFStringRef name = text(key);
        CFPropertyListRef held = CFPreferencesCopyAppValue(name, domain_);
        CFRelease(name);
        if (!held)
            return std::nullopt;
        std::optional<PreferenceValue> result;
        CFTypeID type = CFGetTypeID(held);
        if (type == CFBooleanGetTypeID()) {
            result = CFBooleanGetValue(static_cast<CFBooleanRef>(held)) != 0;
        } else if (type == CFNumberGetTypeID()) {
            auto number = static_cast<CFNumberRef>(held);
            if (CFNumberIsFloatType(number)) {
                double real = 0;
                CFNumberGetValue(number, kCFNumberDoubleType, &real);
                result = real;
            } else {
                int64_t integer = 0;
                CFNumberGetValue(number, kCFNumberSInt64Type, &integer);
                result = integer;
            }
        } else if (type == CFStringGetTypeID()) {
            result = string(static_cast<CFStringRef>(held));
        } else if (type == CFDataGetTypeID()) {
            auto data = static_cast<CFDataRef>(held);
            result = PreferenceData { std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<size_t>(CFDataGetLength(data))) };
        } else if (type == CFArrayGetTypeID()) {
            std::vector<std::string> list;
            auto array = static_cast<CFArrayRef>(held);
            for (CFIndex index = 0; index < CFArrayGetCount(array); ++index) {
                auto item = CFArrayGetValueAtIndex(array, index);
                if (CFGetTypeID(item) != CFStringGetTypeID())
                    break;
                list.push_back(string(static_cast<CFStringRef>(item)));
            }
            result = list;
        }
        CFRelease(held);
        return result;
    }

    void set(std::string_view key, PreferenceValue value) override
    {
        CFPropertyListRef held = std::visit(
            [](const auto& item) -> CFPropertyListRef {
                using T = std::decay_t<decltype(item)>;
                if constexpr (std::is_same_v<T, bool>)
                    return CFRetain(item ? kCFBooleanTrue : kCFBooleanFalse);
                else if constexpr (std::is_same_v<T, int64_t>)
                    return CFNumberCreate(nullptr, kCFNumberSInt64Type, &item);
                else if constexpr (std::is_same_v<T, double>)
                    return CFNumberCreate(nullptr, kCFNumberDoubleType, &item);
                else if constexpr (std::is_same_v<T, std::string>)
                    return text(item);
                else if constexpr (std::is_same_v<T, PreferenceData>)
                    return CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(item.bytes.data()), static_cast<CFIndex>(item.bytes.size()));
                else {
                    CFMutableArrayRef array = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
                    for (const auto& entry : item) {
                        CFStringRef line = text(entry);
                        CFArrayAppendValue(array, line);
                        CFRelease(line);
                    }
                    return array;
                }
            },
            value);
        CFStringRef name = text(key);
        CFPreferencesSetAppValue(name, held, domain_);
        CFRelease(name);
        CFRelease(held);
        CFPreferencesAppSynchronize(domain_);
        notify(std::string(key));
    }

    void remove(std::string_view key) override
    {
        CFStringRef name = text(key);
        CFPreferencesSetAppValue(name, nullptr, domain_);
        CFRelease(name);
        CFPreferencesAppSynchronize(domain_);
        notify(std::string(key));
    }

    bool synchronize() override { return CFPreferencesAppSynchronize(domain_); }

private:
    CFStringRef domain_;
};

} // namespace

std::unique_ptr<Preferences> Preferences::open(const std::string& domain) { return std::make_unique<SystemPreferences>(domain); }

} // namespace kestrune
