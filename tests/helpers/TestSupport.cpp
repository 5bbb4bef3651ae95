#include "tests/helpers/TestSupport.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "KestruneKit/DevTools/DevToolBox.h"

namespace kestrune::test {

std::string shell(const std::string& folder, const std::string& script, const Environment& extra)
{
    Environment overrides {
        { "GIT_AUTHOR_NAME", "Test" }, { "GIT_AUTHOR_EMAIL", "test@example.com" },
        { "GIT_COMMITTER_NAME", "Test" }, { "GIT_COMMITTER_EMAIL", "test@example.com" },
        { "GIT_CONFIG_NOSYSTEM", "1" }, { "GIT_CONFIG_GLOBAL", "/dev/null" }, { "LC_ALL", "C" },
    };
    for (const auto& [name, value] : extra)
        overrides[name] = value;
    auto run = DevToolBox().run(DevTool { "sh", { "/bin/sh" } }, { "-ec", script }, folder, overrides, Seconds(120));
    EXPECT_TRUE(run.succeeded()) << script << "\n" << run.output << run.errorOutput;
    return run.output;
}

TemporaryFolder::TemporaryFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "kestrune-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void TemporaryFolder::write(const std::string& name, const std::string& text, unsigned mode) const
{
    std::string path = file(name);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
    ::chmod(path.c_str(), mode);
}

std::string readFile(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

int openDescriptorCount()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

int zombieChildCount()
{
    int count = 0;
    std::string self = std::to_string(::getpid());
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::string stat = readFile(entry.path().string() + "/stat");
        // pid (comm) state ppid ...: comm may hold spaces, so read after the last ')'.
        auto close = stat.rfind(')');
        if (close == std::string::npos)
            continue;
        std::istringstream rest(stat.substr(close + 1));
        std::string state, parent;
        rest >> state >> parent;
        if (state == "Z" && parent == self)
            ++count;
    }
    return count;
}

bool processIsAlive(int pid)
{
    std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    auto close = stat.rfind(')');
    if (close == std::string::npos)
        return false;
    std::istringstream rest(stat.substr(close + 1));
    std::string state;
    rest >> state;
    return state != "Z" && state != "X";
}

bool eventually(const std::function<bool()>& done, double seconds)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

bool ordinaryUser() { return ::geteuid() != 0; }

SmallDisk::SmallDisk()
{
    if (const char* given = std::getenv("KESTRUNE_TEST_SMALL_DISK"); given && *given) {
        path_ = std::string(given) + "/disk-" + std::to_string(::getpid()) + "-" + std::to_string(::rand());
        if (::mkdir(path_.c_str(), 0700) != 0)
            path_.clear();
        return;
    }
    if (ordinaryUser())
        return;
    char name[] = "/tmp/kestrune-disk-XXXXXX";
    if (!::mkdtemp(name))
        return;
    path_ = name;
    mounted_ = std::system(("mount -t tmpfs -o size=256k tmpfs " + path_ + " 2>/dev/null").c_str()) == 0;
    if (!mounted_) {
        ::rmdir(name);
        path_.clear();
    }
}

SmallDisk::~SmallDisk()
{
    if (path_.empty())
        return;
    makeRoom();
    if (mounted_)
        (void)std::system(("umount " + path_).c_str());
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void SmallDisk::fill() const
{
    int fd = ::open((path_ + "/filler").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    std::string block(4096, 'x');
    while (fd >= 0 && ::write(fd, block.data(), block.size()) > 0) {
    }
    // The last partial block too.
    while (fd >= 0 && ::write(fd, block.data(), 1) > 0) {
    }
    if (fd >= 0)
        ::close(fd);
}

void SmallDisk::makeRoom() const { ::unlink((path_ + "/filler").c_str()); }

} // namespace kestrune::test
