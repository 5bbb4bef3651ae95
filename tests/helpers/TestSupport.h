#pragma once

#include <functional>
#include <string>

#include "KestruneKit/Core/Environment.h"

namespace kestrune::test {

// A fresh folder under the system's temporary folder, removed with everything in it at the end.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }
    void write(const std::string& name, const std::string& text, unsigned mode = 0644) const;

private:
    std::string path_;
};

[[nodiscard]] std::string readFile(const std::string& path);

// Descriptors this process has open now.
[[nodiscard]] int openDescriptorCount();
// Children of this process that have exited and not been reaped.
[[nodiscard]] int zombieChildCount();
// Whether a process with this pid exists and has not exited (a zombie counts as gone).
[[nodiscard]] bool processIsAlive(int pid);
// Runs a /bin/sh script in the folder with fixed git identities and no user or system git
// configuration; a failing script fails the test with its output. Returns standard output.
std::string shell(const std::string& folder, const std::string& script, const Environment& extra = {});

// Permission failures cannot be seen as root: tests of them skip unless run as an ordinary
// user, which scripts/test does for the tests named "...AsAnOrdinaryUser".
[[nodiscard]] bool ordinaryUser();

// A small file system to fill: $KESTRUNE_TEST_SMALL_DISK when set (scripts/test mounts one), else
// a tmpfs mounted on a new folder when running as root; none when neither can be had.
class SmallDisk {
public:
    SmallDisk();
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    [[nodiscard]] bool available() const { return !path_.empty(); }
    [[nodiscard]] const std::string& path() const { return path_; }
    // Writes a filler file until the disk has no room left.
    void fill() const;
    void makeRoom() const;

private:
    std::string path_;
    bool mounted_ = false;
};

// Waits, up to a generous bound, until `done` holds; returns whether it did.
[[nodiscard]] bool eventually(const std::function<bool()>& done, double seconds = 20);

} // namespace kestrune::test
