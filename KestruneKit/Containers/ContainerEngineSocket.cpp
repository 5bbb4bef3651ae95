#include "KestruneKit/Containers/ContainerEngineSocket.h"

#include <memory>

#include "KestruneKit/Core/CurlLibrary.h"
#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

constexpr RawNames<ContainerReadFailure, 5> failureNames { { {
    { ContainerReadFailure::socketPathTooLong, "socketPathTooLong" },
    { ContainerReadFailure::notRunning, "notRunning" },
    { ContainerReadFailure::timedOut, "timedOut" },
    { ContainerReadFailure::badAnswer, "badAnswer" },
    { ContainerReadFailure::noHttpLibrary, "noHttpLibrary" },
} } };


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


} // namespace

std::string_view toString(ContainerReadFailure failure) { return failureNames.name(failure); }

std::variant<std::vector<Container>, ContainerReadFailure> ContainerEngineSocket::readContainers(const std::string& socketPath, Seconds timeout)
{
    if (socketPath.size() >= socketPathLimit)
        return ContainerReadFailure::socketPathTooLong;
    const auto* library = CurlLibrary::shared();
    if (!library)
        return ContainerReadFailure::noHttpLibrary;
    CurlHandle curl(library->easyInit());
    if (!curl)
        return ContainerReadFailure::noHttpLibrary;

    // curl writes its request line and Host from the address; "Accept:" with no value removes its
    // default header, so the bytes on the wire are exactly the fixed request.
    HeaderList headers(library->slistAppend(nullptr, "Accept:"));
    headers.reset(library->slistAppend(headers.release(), "Connection: close"));
    Body body;
    auto milliseconds = static_cast<long>(timeout.count() * 1000);
    library->easySetopt(curl.get(), CURLOPT_UNIX_SOCKET_PATH, socketPath.c_str());
    library->easySetopt(curl.get(), CURLOPT_URL, "http://docker/containers/json");
    library->easySetopt(curl.get(), CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
    library->easySetopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
    library->easySetopt(curl.get(), CURLOPT_WRITEFUNCTION, appendBody);
    library->easySetopt(curl.get(), CURLOPT_WRITEDATA, &body);
    library->easySetopt(curl.get(), CURLOPT_TIMEOUT_MS, milliseconds);
    library->easySetopt(curl.get(), CURLOPT_CONNECTTIMEOUT_MS, milliseconds);
    // Worker threads: no signals for time-outs.
    library->easySetopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    library->easySetopt(curl.get(), CURLOPT_PROXY, "");
    library->easySetopt(curl.get(), CURLOPT_FOLLOWLOCATION, 0L);

    CURLcode result = library->easyPerform(curl.get());
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
    library->easyGetinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status != 200 || body.tooLarge)
        return ContainerReadFailure::badAnswer;
    auto containers = decodeContainerList(body.text);
    if (!containers)
        return ContainerReadFailure::badAnswer;
    return std::move(*containers);
}

} // namespace kestrune
