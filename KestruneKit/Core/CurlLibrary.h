#pragma once
// libcurl, opened on first use rather than linked: it brings some thirty libraries with it, and
// loading them at start-up would cost every `kestrune` run (and the dock's launch) several
// milliseconds for a request most runs never make. Only its header is used at build time.
//
//   const CurlLibrary* curl = CurlLibrary::shared();     // none when libcurl is missing
//   CurlHandle handle(curl->easyInit());
//
// Any thread.

#include <memory>
#include <type_traits>

#include <dlfcn.h>

#define CURL_DISABLE_TYPECHECK
#include <curl/curl.h>

namespace kestrune {

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

} // namespace kestrune
