#include "KestruneKit/SystemStats/SMCReader.h"

#include <IOKit/IOKitLib.h>
#include <mach/mach.h>

namespace kestrune {

namespace {

// The AppleSMC user client: IOConnectCallStructMethod with the 80-byte record both ways.
class IOKitSMCConnection final : public SMCConnection {
public:
    explicit IOKitSMCConnection(io_connect_t connection) : connection_(connection) {}
    ~IOKitSMCConnection() override { IOServiceClose(connection_); }
    int call(uint32_t selector, const SMCRecord& input, SMCRecord& output, size_t& outputSize) override
    {
        return IOConnectCallStructMethod(connection_, selector, input.data(), input.size(), output.data(), &outputSize);
    }

private:
    io_connect_t connection_;
};

} // namespace

std::unique_ptr<SMCReader> SMCReader::open()
{
    io_service_t service = IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching("AppleSMC"));
    if (!service)
        return nullptr;
    io_connect_t connection = 0;
    kern_return_t opened = IOServiceOpen(service, mach_task_self(), 0, &connection);
    IOObjectRelease(service);
    if (opened != KERN_SUCCESS || !connection)
        return nullptr;
    return std::make_unique<SMCReader>(std::make_unique<IOKitSMCConnection>(connection));
}

} // namespace kestrune
