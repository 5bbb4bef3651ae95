// A preferences file as found on disk: every key read in every type, one change written back.
#include "KestruneKit/Preferences/Preferences.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    static fuzz::Scratch folder;
    folder.clear();
    std::string path = folder.write("app.quillane.dock.json", fuzz::text(data, size));
    JSONFilePreferences preferences(path);
    for (const char* key : { "edge", "iconSize", "widgets", "pinned", "magnification", "" }) {
        (void)preferences.value(key);
        (void)preferences.boolValue(key);
        (void)preferences.integerValue(key);
        (void)preferences.doubleValue(key);
        (void)preferences.stringValue(key);
        (void)preferences.stringListValue(key);
        (void)preferences.dataValue(key);
    }
    preferences.set("iconSize", PreferenceValue(int64_t { 48 }));
    // What was written reads back, whatever the file held before.
    if (!preferences.synchronize() || JSONFilePreferences(path).integerValue("iconSize") != 48)
        __builtin_trap();
    return 0;
}
