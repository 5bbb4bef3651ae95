#pragma once
// A PulseAudio server of a test's own: its socket, configuration and runtime folder in the test's
// folder, two null outputs ("Speakers", "Headphones") and a null microphone, and nothing of the
// host's sound touched. `record()` starts a program recording from the microphone.

#include <csignal>
#include <memory>
#include <string>
#include <sys/stat.h>

#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Process/ChildProcess.h"
#include "tests/helpers/Spawn.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune::test {

class PrivateSoundServer {
public:
    explicit PrivateSoundServer(const TemporaryFolder& folder) : socket_(folder.file("pulse-native"))
    {
        ::mkdir(folder.file("pulse-home").c_str(), 0700);
        environment_ = processEnvironment();
        environment_["HOME"] = folder.file("pulse-home");
        environment_["XDG_RUNTIME_DIR"] = folder.file("pulse-home");
        environment_["XDG_CONFIG_HOME"] = folder.file("pulse-home");
        environment_.erase("DBUS_SESSION_BUS_ADDRESS");
        ChildProcessOptions server;
        server.executable = "/usr/bin/pulseaudio";
        server.arguments = { "-n", "--daemonize=no", "--exit-idle-time=-1", "--disallow-exit", "--use-pid-file=no", "--log-target=stderr",
                             "--load=module-native-protocol-unix socket=" + socket_ + " auth-anonymous=1",
                             "--load=module-null-sink sink_name=speakers sink_properties=device.description=Speakers",
                             "--load=module-null-sink sink_name=headphones sink_properties=device.description=Headphones",
                             "--load=module-null-source source_name=mic description=Microphone" };
        server.environment = environment_;
        server.output = ChildStream::nullDevice;
        server.error = ChildStream::nullDevice;
        server_ = spawn(server);
        ready_ = server_ && eventually([&] { return ctl({ "info" }); }, 15);
    }

    ~PrivateSoundServer()
    {
        if (recorder_) {
            recorder_->signal(SIGKILL);
            recorder_->wait();
        }
        if (server_) {
            server_->signal(SIGTERM);
            server_->wait();
        }
    }

    [[nodiscard]] static bool available() { return isExecutableFile("/usr/bin/pulseaudio") && isExecutableFile("/usr/bin/pactl"); }
    [[nodiscard]] bool ready() const { return ready_; }
    [[nodiscard]] std::string address() const { return "unix:" + socket_; }

    // pactl against this server; true when it succeeds.
    bool ctl(std::vector<std::string> arguments)
    {
        ChildProcessOptions options;
        options.executable = "/usr/bin/pactl";
        options.arguments = { "--server=" + address() };
        options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
        options.environment = environment_;
        options.output = ChildStream::nullDevice;
        options.error = ChildStream::nullDevice;
        auto run = ChildProcess::spawn(options);
        auto* child = std::get_if<std::unique_ptr<ChildProcess>>(&run);
        return child && (*child)->wait().succeeded();
    }

    // A program recording from the microphone until stopped.
    void record()
    {
        ChildProcessOptions options;
        options.executable = "/usr/bin/parec";
        options.arguments = { "--server=" + address(), "-d", "mic", "--raw" };
        options.environment = environment_;
        options.output = ChildStream::nullDevice;
        options.error = ChildStream::nullDevice;
        recorder_ = spawn(options);
    }

    void stopRecording()
    {
        if (!recorder_)
            return;
        recorder_->signal(SIGTERM);
        recorder_->wait();
        recorder_.reset();
    }

private:
    std::string socket_;
    Environment environment_;
    std::unique_ptr<ChildProcess> server_;
    std::unique_ptr<ChildProcess> recorder_;
    bool ready_ = false;
};

} // namespace kestrune::test
