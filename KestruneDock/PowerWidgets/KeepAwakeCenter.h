#pragma once
// OVERVIEW
// Keep Awake: while on, logind holds an "idle:sleep" inhibitor for us (the machine neither
// suspends when idle nor on its own timer) and the X screen saver is suspended; off, both are
// let go at once. The inhibitor is a descriptor logind hands over: closing it is the release, so a
// crash releases it too. Its logind calls, and Lock & Sleep's, are asynchronous.
//
// TYPICAL USAGE
//   KeepAwakeCenter awake(systemServicesBus());
//   awake.setOn(true);
//   awake.release();          // at termination, before anything else
//
// Main thread only.

#include <functional>
#include <memory>

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QString>

struct xcb_connection_t;

namespace kestrune {

class KeepAwakeCenter {
public:
    // The screen saver is suspended on `display`, the application's own X connection unless given:
    // the X server ends the suspension when that connection closes.
    explicit KeepAwakeCenter(QDBusConnection bus, xcb_connection_t* display = nullptr);
    ~KeepAwakeCenter() { release(); }
    KeepAwakeCenter(const KeepAwakeCenter&) = delete;
    KeepAwakeCenter& operator=(const KeepAwakeCenter&) = delete;

    // Wanted on; the inhibitor follows when logind answers.
    [[nodiscard]] bool isOn() const { return on_; }
    // logind's inhibitor is held now.
    [[nodiscard]] bool isHeld() const { return inhibitor_.isValid(); }
    // Why it could not be kept awake, in a sentence; empty when all is well.
    [[nodiscard]] const QString& problem() const { return problem_; }
    void setOn(bool on);
    // Lets go of everything now, without asking anyone.
    void release();

    std::function<void()> onChange;

private:
    void changed();
    void suspendScreenSaver(bool suspend);

    QDBusConnection bus_;
    xcb_connection_t* display_;
    bool on_ = false;
    bool screenSaverSuspended_ = false;
    QDBusUnixFileDescriptor inhibitor_;
    QString problem_;
    uint64_t request_ = 0;
    // Replies that come after a release find it gone.
    std::shared_ptr<bool> alive_;
};

// logind's own session for this process ($XDG_SESSION_ID, or the one logind finds for us) is
// locked, or the machine suspended; `done` gets an empty text on success or what went wrong.
void lockScreen(const QDBusConnection& bus, std::function<void(const QString& failure)> done);
void suspendMachine(const QDBusConnection& bus, std::function<void(const QString& failure)> done);

} // namespace kestrune
