#include "KestruneKit/Containers/ContainerEngineSocket.h"

#include <memory>
#include <mutex>

#include <curl/curl.h>

#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

constexpr RawNames<ContainerReadFailure, 4> failureNames { { {
    { ContainerReadFailure::socketPathTooLong, "socketPathTooLong" },
    { ContainerReadFailure::notRunning, "notRunning" },
    { ContainerReadFailure::timedOut, "timedOut" },
    { ContainerReadFailure::badAnswer, "badAnswer" },
} } };

struct CurlDeleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct HeaderListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlHandle = std::unique_ptr<CURL, CurlDeleter>;
using HeaderList = std::unique_ptr<curl_slist, HeaderListDeleter>;

struct Body {
    std::string text;
    bool tooLarge = false;
};

size_t appendBody(char* data, size_t size, size_t count, void* context)
{
    auto* body = static_cast<Body*>(context);
    size_t length = size * count;
    if (body->text.size() + length > ContainerEngineSocket::answerLimit) {
        body->tooLarge = true;
        return 0; // makes curl stop with a write error
    }
    body->text.append(data, length);
    return length;
}

void initialiseCurlOnce()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

} // namespace

std::string_view toString(ContainerReadFailure failure) { return failureNames.name(failure); }

std::variant<std::vector<Container>, ContainerReadFailure> ContainerEngineSocket::readContainers(const std::string& socketPath, Seconds timeout)
{
    if (socketPath.size() >= socketPathLimit)
        return ContainerReadFailure::socketPathTooLong;
    initialiseCurlOnce();
    CurlHandle curl(curl_easy_init());
    if (!curl)
        return ContainerReadFailure::badAnswer;

    // curl writes its request line and Host from the address; "Accept:" with no value removes its
    // default header, so the bytes on the wire are exactly the fixed request.
    HeaderList headers(curl_slist_append(nullptr, "Accept:"));
    headers.reset(curl_slist_append(headers.release(), "Connection: close"));
    Body body;
    auto milliseconds = static_cast<long>(timeout.count() * 1000);
    curl_easy_setopt(curl.get(), CURLOPT_UNIX_SOCKET_PATH, socketPath.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_URL, "http://docker/containers/json");
    curl_easy_setopt(curl.get(), CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, milliseconds);
    curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT_MS, milliseconds);
    // Worker threads: no signals for time-outs.
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");
    curl_easy_setopt(curl.get(), CURLOPT_FOLLOWLOCATION, 0L);

    CURLcode result = curl_easy_perform(curl.get());
    switch (result) {
    case CURLE_OK:
        break;
    case CURLE_COULDNT_CONNECT:
        return ContainerReadFailure::notRunning;
    case CURLE_OPERATION_TIMEDOUT:
        return ContainerReadFailure::timedOut;
    default:
        return ContainerReadFailure::badAnswer;
    }
    long status = 0;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status != 200 || body.tooLarge)
        return ContainerReadFailure::badAnswer;
    auto containers = decodeContainerList(body.text);
    if (!containers)
        return ContainerReadFailure::badAnswer;
    return std::move(*containers);
}

} // namespace kestrune
