#include "KestruneKit/Endpoints/EndpointsMonitor.h"

#include <algorithm>
#include <cmath>

#include "KestruneKit/Core/CurlLibrary.h"

namespace kestrune {

namespace {

// Enough for a status line and headers; a body is never wanted.
constexpr size_t readLimit = 64 * 1024;

size_t discard(char*, size_t size, size_t count, void* context)
{
    auto* read = static_cast<size_t*>(context);
    *read += size * count;
    return *read > readLimit ? 0 : size * count;
}

EndpointFailure failureOf(CURLcode code)
{
    switch (code) {
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT:
        return EndpointFailure::badAddress;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
        return EndpointFailure::notFound;
    case CURLE_COULDNT_CONNECT:
        return EndpointFailure::refused;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
        return EndpointFailure::secureConnection;
    case CURLE_OPERATION_TIMEDOUT:
        return EndpointFailure::timedOut;
    default:
        return EndpointFailure::failed;
    }
}

} // namespace

std::string_view text(EndpointFailure failure)
{
    switch (failure) {
    case EndpointFailure::badAddress: return "Not a web address";
    case EndpointFailure::notFound: return "Couldn’t find the server";
    case EndpointFailure::refused: return "Connection refused";
    case EndpointFailure::secureConnection: return "Secure connection failed";
    case EndpointFailure::timedOut: return "Timed out";
    case EndpointFailure::failed: return "Couldn’t reach it";
    case EndpointFailure::noHttpLibrary: return "libcurl isn’t installed";
    }
    return "Couldn’t reach it";
}

EndpointResult checkEndpoint(const std::string& address, Seconds timeout)
{
    EndpointResult result;
    result.address = address;
    // Only the web: a file:, ftp: or other address is not an endpoint.
    if (!address.starts_with("http://") && !address.starts_with("https://")) {
        result.failure = EndpointFailure::badAddress;
        return result;
    }
    const CurlLibrary* curl = CurlLibrary::shared();
    CurlHandle handle(curl ? curl->easyInit() : nullptr);
    if (!handle) {
        result.failure = EndpointFailure::noHttpLibrary;
        return result;
    }
    size_t read = 0;
    auto milliseconds = static_cast<long>(std::lround(timeout.count() * 1000));
    curl->easySetopt(handle.get(), CURLOPT_URL, address.c_str());
    curl->easySetopt(handle.get(), CURLOPT_PROTOCOLS_STR, "http,https");
    curl->easySetopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
    curl->easySetopt(handle.get(), CURLOPT_FOLLOWLOCATION, 0L);
    curl->easySetopt(handle.get(), CURLOPT_TIMEOUT_MS, milliseconds);
    curl->easySetopt(handle.get(), CURLOPT_CONNECTTIMEOUT_MS, milliseconds);
    curl->easySetopt(handle.get(), CURLOPT_USERAGENT, "Kestrune Dock");
    curl->easySetopt(handle.get(), CURLOPT_WRITEFUNCTION, &discard);
    curl->easySetopt(handle.get(), CURLOPT_WRITEDATA, &read);
    CURLcode code = curl->easyPerform(handle.get());
    long status = 0;
    curl->easyGetinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
    double seconds = 0;
    curl->easyGetinfo(handle.get(), CURLINFO_TOTAL_TIME, &seconds);
    result.took = Seconds(seconds);
    // A body cut short on purpose still answered.
    if (status > 0 && (code == CURLE_OK || code == CURLE_WRITE_ERROR))
        result.status = static_cast<int>(status);
    else
        result.failure = failureOf(code);
    return result;
}

std::vector<std::string> endpointAddresses(std::string_view option)
{
    std::vector<std::string> addresses;
    size_t start = 0;
    while (start <= option.size()) {
        size_t end = option.find('\n', start);
        std::string_view line = option.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t'))
            line.remove_prefix(1);
        while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r'))
            line.remove_suffix(1);
        if (!line.empty() && std::find(addresses.begin(), addresses.end(), line) == addresses.end())
            addresses.emplace_back(line);
        if (end == std::string_view::npos)
            break;
        start = end + 1;
    }
    return addresses;
}

namespace endpointsText {

std::string detail(const EndpointResult& result)
{
    if (result.failure)
        return std::string(text(*result.failure));
    return std::to_string(result.status.value_or(0)) + " · " + std::to_string(std::lround(result.took.count() * 1000)) + " ms";
}

std::string summary(const std::vector<std::string>& addresses, const std::map<std::string, EndpointResult>& results)
{
    if (addresses.empty())
        return std::string(noAddresses);
    size_t known = 0;
    size_t down = 0;
    for (const std::string& address : addresses) {
        auto found = results.find(address);
        if (found == results.end())
            continue;
        ++known;
        down += found->second.isUp() ? 0 : 1;
    }
    if (known < addresses.size())
        return std::string(checking);
    if (addresses.size() == 1) {
        const EndpointResult& result = results.at(addresses.front());
        return (result.isUp() ? "Up · " : "Down · ") + detail(result);
    }
    if (down == 0)
        return "All " + std::to_string(addresses.size()) + " up";
    return std::to_string(down) + " of " + std::to_string(addresses.size()) + " down";
}

} // namespace endpointsText

EndpointsMonitor::EndpointsMonitor(Runtime& runtime, KestruneActivity& activity)
    : runtime_(runtime), activity_(activity), self_(std::make_shared<EndpointsMonitor*>(this))
{
}

EndpointsMonitor::~EndpointsMonitor() { *self_ = nullptr; }

void EndpointsMonitor::setAddresses(std::vector<std::string> addresses)
{
    if (addresses == addresses_)
        return;
    addresses_ = std::move(addresses);
    std::erase_if(results_, [this](const auto& entry) {
        return std::find(addresses_.begin(), addresses_.end(), entry.first) == addresses_.end();
    });
    if (poller_ && poller_->isActive())
        refresh();
}

DevPoller& EndpointsMonitor::poller()
{
    if (!poller_)
        poller_ = std::make_unique<DevPoller>(runtime_, activity_, interval, [this] { refresh(); });
    return *poller_;
}

void EndpointsMonitor::refresh()
{
    if (addresses_.empty() || std::exchange(checking_, true))
        return;
    std::weak_ptr<EndpointsMonitor*> weak = self_;
    queue_.async([weak, &runtime = runtime_, addresses = addresses_] {
        for (const std::string& address : addresses) {
            EndpointResult result = checkEndpoint(address);
            runtime.post([weak, result = std::move(result)]() mutable {
                auto self = weak.lock();
                if (!self || !*self)
                    return;
                EndpointsMonitor& monitor = **self;
                if (std::find(monitor.addresses_.begin(), monitor.addresses_.end(), result.address) == monitor.addresses_.end())
                    return;
                auto found = monitor.results_.find(result.address);
                if (found != monitor.results_.end() && found->second == result)
                    return;
                monitor.results_.insert_or_assign(result.address, std::move(result));
                if (monitor.onChange)
                    monitor.onChange();
            });
        }
        runtime.post([weak] {
            if (auto self = weak.lock(); self && *self)
                (*self)->checking_ = false;
        });
    });
}

} // namespace kestrune
