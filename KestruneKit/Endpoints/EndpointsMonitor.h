#pragma once
// OVERVIEW
// The Endpoints widget's data: whether each of the user's URLs answers, with its status code and
// how long it took, checked once a minute while the widget is on screen. A check is one GET that
// reads no more than the headers' worth of the answer, follows no redirect and gives up after ten
// seconds; failures are told by their cause (the name, a refused connection, TLS, time).
//
// TYPICAL USAGE
//   EndpointsMonitor monitor(runtime);
//   monitor.setAddresses({ "https://example.com/health" });
//   monitor.onChange = [&] { redraw(monitor.results()); };
//   monitor.poller().setWanted(tileId, true);
//
// Main thread only; the checks run on the monitor's own queue, one after another.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/Core/SerialQueue.h"
#include "KestruneKit/DevTools/DevPoller.h"

namespace kestrune {

enum class EndpointFailure { badAddress, notFound, refused, secureConnection, timedOut, failed, noHttpLibrary };

// "Couldn’t find the server" ...
[[nodiscard]] std::string_view text(EndpointFailure failure);

struct EndpointResult {
    std::string address;
    // The HTTP status, when the server answered.
    std::optional<int> status;
    std::optional<EndpointFailure> failure;
    Seconds took { 0 };

    // Up: an answer below 400 (a redirect is an answer).
    [[nodiscard]] bool isUp() const { return status && *status < 400; }
    bool operator==(const EndpointResult&) const = default;
};

// One blocking check.
[[nodiscard]] EndpointResult checkEndpoint(const std::string& address, Seconds timeout = Seconds(10));

// The addresses of an "urls" option: one per line, blank lines and surrounding spaces dropped.
[[nodiscard]] std::vector<std::string> endpointAddresses(std::string_view option);

namespace endpointsText {
inline constexpr std::string_view noAddresses = "Add the addresses to check in Options";
inline constexpr std::string_view checking = "Checking…";
// "All 3 up", "1 of 3 down", "Up · 200 · 84 ms" for one.
[[nodiscard]] std::string summary(const std::vector<std::string>& addresses, const std::map<std::string, EndpointResult>& results);
// "200 · 84 ms", or the failure's text.
[[nodiscard]] std::string detail(const EndpointResult& result);
} // namespace endpointsText

class EndpointsMonitor {
public:
    static constexpr Seconds interval { 60.0 };

    explicit EndpointsMonitor(Runtime& runtime, KestruneActivity& activity = KestruneActivity::shared());
    ~EndpointsMonitor();
    EndpointsMonitor(const EndpointsMonitor&) = delete;
    EndpointsMonitor& operator=(const EndpointsMonitor&) = delete;

    // The addresses of every Endpoints widget; results of others are dropped.
    void setAddresses(std::vector<std::string> addresses);
    [[nodiscard]] const std::vector<std::string>& addresses() const { return addresses_; }
    [[nodiscard]] const std::map<std::string, EndpointResult>& results() const { return results_; }
    [[nodiscard]] DevPoller& poller();
    void refresh();

    std::function<void()> onChange;

private:
    Runtime& runtime_;
    KestruneActivity& activity_;
    std::vector<std::string> addresses_;
    std::map<std::string, EndpointResult> results_;
    bool checking_ = false;
    std::unique_ptr<DevPoller> poller_;
    std::shared_ptr<EndpointsMonitor*> self_;
    SerialQueue queue_;
};

} // namespace kestrune
