#include "KestruneKit/Containers/ContainerEngineSocket.h"

#include <memory>

#include <dlfcn.h>

#define CURL_DISABLE_TYPECHECK
#include <curl/curl.h>

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

// libcurl is opened on first use rather than linked: it brings some thirty libraries with it,
// and loading them at start-up would cost every `kestrune` run (and the dock's launch) several
// milliseconds for a request most runs never make.
struct CurlLibrary {
    decltype(&curl_global_init) globalInit = nullptr;
    decltype(&curl_easy_init) easyInit = nullptr;
    decltype(&curl_easy_setopt) easySetopt = nullptr;
    decltype(&curl_easy_perform) easyPerform = nullptr;
    decltype(&curl_easy_getinfo) easyGetinfo = nullptr;
    decltype(&curl_easy_cleanup) easyCleanup = nullptr;
    decltype(&curl_slist_append) slistAppend = nullptr;
    decltype(&curl_slist_free_all) slistFreeAll = nullptr;

    // Nothing when the library is missing; loaded and initialised once, kept for the process.
    static const CurlLibrary* shared()
    {
        static const CurlLibrary* library = [] () -> const CurlLibrary* {
#if defined(__APPLE__)
            void* handle = ::dlopen("libcurl.4.dylib", RTLD_NOW | RTLD_LOCAL);
#else
            void* handle = ::dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
#endif
            if (!handle)
                return nullptr;
            static CurlLibrary loaded;
            auto resolve = [handle](auto& function, const char* name) {
                function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(::dlsym(handle, name));
                return function != nullptr;
            };
            bool complete = resolve(loaded.globalInit, "curl_global_init") && resolve(loaded.easyInit, "curl_easy_init")
                && resolve(loaded.easySetopt, "curl_easy_setopt") && resolve(loaded.easyPerform, "curl_easy_perform")
                && resolve(loaded.easyGetinfo, "curl_easy_getinfo") && resolve(loaded.easyCleanup, "curl_easy_cleanup")
                && resolve(loaded.slistAppend, "curl_slist_append") && resolve(loaded.slistFreeAll, "curl_slist_free_all");
            if (!complete || loaded.globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK)
                return nullptr;
            return &loaded;
        }();
        return library;
    }
};

struct CurlDeleter {
    void operator()(CURL* handle) const { CurlLibrary::shared()->easyCleanup(handle); }
};
struct HeaderListDeleter {
    void operator()(curl_slist* list) const { CurlLibrary::shared()->slistFreeAll(list); }
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
