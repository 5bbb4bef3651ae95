// The engine's container list, and the client's configuration that names the engine's socket:
// config.json, then a context's meta.json after a NUL byte.
#include "KestruneKit/Containers/ContainerEngine.h"
#include "KestruneKit/Containers/ContainerList.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    static fuzz::Scratch home;
    auto input = fuzz::text(data, size);
    if (auto containers = decodeContainerList(input))
        for (const Container& container : *containers) {
            (void)container.name();
            (void)container.composeProject();
            (void)container.imageText();
            for (const ContainerPort& port : container.ports)
                (void)port.text();
        }
    home.clear();
    auto [config, meta] = fuzz::halves(input);
    home.write(".docker/config.json", config);
    home.write(".docker/contexts/meta/0123/meta.json", meta);
    (void)containerSocketPath({}, home.path());
    return 0;
}
