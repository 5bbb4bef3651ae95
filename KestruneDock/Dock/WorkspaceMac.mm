// Applications on macOS: bundles, the shared NSWorkspace and its notifications. Only regular
// applications (those with a Dock icon of their own) are reported as running.

#include "KestruneDock/Dock/Workspace.h"

#import <AppKit/AppKit.h>

#include <unistd.h>

#include "KestruneKit/Core/ObserverList.h"
#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

namespace {

std::string utf8(NSString* text)
{
    const char* bytes = text.UTF8String;
    return bytes ? std::string(bytes) : std::string();
}

NSString* nsString(const std::string& text) { return [NSString stringWithUTF8String:text.c_str()] ?: @""; }

const char* bundleIdentifier(DockDefaultApp role)
{
    switch (role) {
    case DockDefaultApp::fileManager:
        return "com.apple.finder";
    case DockDefaultApp::webBrowser:
        return "com.apple.Safari";
    case DockDefaultApp::mail:
        return "com.apple.mail";
    case DockDefaultApp::music:
        return "com.apple.Music";
    case DockDefaultApp::notes:
        return "com.apple.Notes";
    case DockDefaultApp::settings:
        return "com.apple.systempreferences";
    }
    return "";
}

class WorkspaceMac final : public Workspace {
public:
    explicit WorkspaceMac(Runtime& runtime)
        : runtime_(runtime)
        , tokens_([NSMutableArray array])
    {
        NSNotificationCenter* center = NSWorkspace.sharedWorkspace.notificationCenter;
        for (NSNotificationName name in @[ NSWorkspaceWillLaunchApplicationNotification, NSWorkspaceDidLaunchApplicationNotification,
                 NSWorkspaceDidTerminateApplicationNotification ]) {
            id token = [center addObserverForName:name object:nil queue:NSOperationQueue.mainQueue usingBlock:^(NSNotification*) {
                watchers_.notify();
            }];
            [tokens_ addObject:token];
        }
    }

    ~WorkspaceMac() override
    {
        NSNotificationCenter* center = NSWorkspace.sharedWorkspace.notificationCenter;
        for (id token in tokens_)
            [center removeObserver:token];
    }

    std::string_view applicationSuffix() const override { return ".app"; }

    std::vector<RunningApplication> runningApplications() const override
    {
        std::vector<RunningApplication> running;
        for (NSRunningApplication* application in NSWorkspace.sharedWorkspace.runningApplications) {
            if (application.activationPolicy != NSApplicationActivationPolicyRegular)
                continue;
            running.push_back({ application.processIdentifier, utf8(application.bundleURL.path), application.finishedLaunching });
        }
        return running;
    }

    uint64_t watchRunningApplications(std::function<void()> changed) override { return watchers_.add(std::move(changed)); }
    void unwatchRunningApplications(uint64_t id) override { watchers_.remove(id); }
    int64_t thisProcess() const override { return ::getpid(); }

    std::optional<std::string> applicationPath(std::string_view identifier) const override
    {
        NSURL* url = [NSWorkspace.sharedWorkspace URLForApplicationWithBundleIdentifier:nsString(std::string(identifier))];
        return url ? std::optional(utf8(url.path)) : std::nullopt;
    }

    std::optional<std::string> defaultApplication(DockDefaultApp role) const override { return applicationPath(bundleIdentifier(role)); }

    std::string displayName(const std::string& path) const override { return utf8([NSFileManager.defaultManager displayNameAtPath:nsString(path)]); }

    // The panel draws a bundle's icon with NSWorkspace from its path.
    std::optional<DockIconSource> icon(const std::string& path) const override
    {
        return fileExists(path) ? std::optional(DockIconSource { path, false }) : std::nullopt;
    }

    bool fileExists(const std::string& path) const override { return [NSFileManager.defaultManager fileExistsAtPath:nsString(path)]; }

    void launch(const std::string& path, std::function<void(bool)> finished) override
    {
        NSURL* url = [NSURL fileURLWithPath:nsString(path)];
        NSWorkspaceOpenConfiguration* configuration = [NSWorkspaceOpenConfiguration configuration];
        auto shared = std::make_shared<std::function<void(bool)>>(std::move(finished));
        Runtime* runtime = &runtime_;
        // The handler runs on a queue of the system's; the result goes back to the main thread.
        [NSWorkspace.sharedWorkspace openApplicationAtURL:url configuration:configuration completionHandler:^(NSRunningApplication*, NSError* error) {
            bool launched = error == nil;
            runtime->post([shared, launched] { (*shared)(launched); });
        }];
    }

private:
    Runtime& runtime_;
    NSMutableArray* tokens_;
    ObserverList<> watchers_;
};

} // namespace

std::unique_ptr<Workspace> Workspace::forThisPlatform(Runtime& runtime) { return std::make_unique<WorkspaceMac>(runtime); }

} // namespace kestrune
