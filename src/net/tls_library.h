// Run-time binding of the TLS library (libssl). The library is never linked: each function is
// looked up on its first call and, when it or the library is missing, its wrapper gives a fixed
// neutral result, so that the TLS client fails cleanly instead of the process failing to load.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "port/lazy_library.h"

// The library's own opaque types (SSL, SSL_CTX, SSL_METHOD), declared under their real tags so
// that the bound functions are called with the types they were built for.
struct ssl_st;
struct ssl_ctx_st;
struct ssl_method_st;

namespace qzdata_report_kelvo {

using SslSession = ::ssl_st;
using SslContext = ::ssl_ctx_st;
using SslMethod = ::ssl_method_st;

template <class Signature>
class TlsFunction;

// One function of the TLS library: bound on first use, counted, and replaceable in tests.
template <class R, class... Args>
class TlsFunction<R(Args...)> {
  public:
    using Pointer = R (*)(Args...);
    using Result = R;

    TlsFunction(port::LazyLibrary& library, const char* symbol) : bound(library, symbol) {}

    // The function to call, counting the call: a test replacement first, else the library's
    // own, else null.
    Pointer Get() {
        calls.fetch_add(1, std::memory_order_relaxed);
        if (Pointer replaced = replacement.load(std::memory_order_acquire)) {
            return replaced;
        }
        return bound.get();
    }

    // Tests only: the library's own function (null when missing), neither counted nor replaced.
    Pointer Original() { return bound.get(); }
    // Tests only: calls go to `function` from now on; null restores the library's own.
    void ReplaceForTesting(Pointer function) {
        replacement.store(function, std::memory_order_release);
    }
    // Tests only: how often the wrapper was called in this process.
    uint32_t CallCount() const { return calls.load(std::memory_order_relaxed); }

  private:
    port::LazyFunction<R(Args...)> bound;
    std::atomic<uint32_t> calls{0};
    std::atomic<Pointer> replacement{nullptr};
};

// The process-wide binder of the TLS library. Wrappers may be called from any thread; the
// per-function look-up is not locked (a race at most looks a function up twice). Once looked up, a
// function is not looked up again, even if the library appears later. The library is never
// released. Each wrapper's comment gives its result when the function is unavailable.
class TlsLibrary {
  public:
    static TlsLibrary& Instance();

    // Falls back to OPENSSL_init_ssl(0, NULL) where the library has no such symbol. -1.
    int SSL_library_init();
    // Falls back to TLS_client_method where the library has no such symbol. Null.
    const SslMethod* SSLv23_client_method();
    // Null.
    SslContext* SSL_CTX_new(const SslMethod* method);
    // Nothing.
    void SSL_CTX_free(SslContext* context);
    // Null.
    SslSession* SSL_new(SslContext* context);
    // 1 on success. -1.
    int SSL_set_fd(SslSession* session, int fd);
    // 1 on success, 0 or negative otherwise. -1.
    int SSL_connect(SslSession* session);
    // Byte count, 0, or negative. -1.
    int SSL_read(SslSession* session, void* buffer, int size);
    int SSL_write(SslSession* session, const void* data, int size);
    // net::kTlsWantRead, net::kTlsWantWrite, or a fatal value. -1.
    int SSL_get_error(const SslSession* session, int result);
    // 0 means "call again". -1.
    int SSL_shutdown(SslSession* session);
    // Nothing.
    void SSL_free(SslSession* session);

    // Tests only: the next look-ups load `fileNames` instead (an empty list restores the
    // platform's names), and every function is looked up anew. Must not race other calls.
    void OverrideNamesForTesting(std::vector<std::string> fileNames);

    // Tests only: seams on single functions.
    TlsFunction<SslSession*(SslContext*)>& NewForTesting() { return sslNew; }
    TlsFunction<int(SslSession*, int)>& SetFdForTesting() { return sslSetFd; }
    TlsFunction<int(SslSession*)>& ShutdownForTesting() { return sslShutdown; }

  private:
    TlsLibrary();

    template <class Function, class... Args>
    static typename Function::Result Call(Function& function, typename Function::Result neutral,
                                          Args... args) {
        if (auto pointer = function.Get()) {
            return pointer(args...);
        }
        return neutral;
    }
    template <class Function, class... Args>
    static void CallVoid(Function& function, Args... args) {
        if (auto pointer = function.Get()) {
            pointer(args...);
        }
    }

    port::LazyLibrary library;
    TlsFunction<int()> sslLibraryInit;
    port::LazyFunction<int(uint64_t, const void*)> opensslInitSsl;
    TlsFunction<const SslMethod*()> sslv23ClientMethod;
    port::LazyFunction<const SslMethod*()> tlsClientMethod;
    TlsFunction<SslContext*(const SslMethod*)> sslCtxNew;
    TlsFunction<void(SslContext*)> sslCtxFree;
    TlsFunction<SslSession*(SslContext*)> sslNew;
    TlsFunction<int(SslSession*, int)> sslSetFd;
    TlsFunction<int(SslSession*)> sslConnect;
    TlsFunction<int(SslSession*, void*, int)> sslRead;
    TlsFunction<int(SslSession*, const void*, int)> sslWrite;
    TlsFunction<int(const SslSession*, int)> sslGetError;
    TlsFunction<int(SslSession*)> sslShutdown;
    TlsFunction<void(SslSession*)> sslFree;
};

}  // namespace qzdata_report_kelvo
