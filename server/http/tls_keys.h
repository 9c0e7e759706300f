// What a server needs to speak TLS.
#ifndef VXCAMD_TLS_KEYS_H
#define VXCAMD_TLS_KEYS_H

#include <memory>
#include <string>

struct ssl_ctx_st; // of OpenSSL: SSL_CTX
struct ssl_st;     // SSL

namespace vxcam {

struct TlsCloser {
    void operator()(ssl_ctx_st* context) const;
    void operator()(ssl_st* connection) const;
};
using TlsConnection = std::unique_ptr<ssl_st, TlsCloser>;

// A certificate, with those that vouch for it, and its key. TLS 1.2 and 1.3.
//
// Threads: any.
class TlsKeys
{
public:
    // Of two PEM files, which may be the same. Throws Error: File when one cannot be read, Usage
    // when it is none, when they do not belong together, for a key with a passphrase, or
    // one that is in a file open to everybody.
    TlsKeys(const std::string& certificate, const std::string& key);

    // A server's connection on that socket, which does not wait. Null: no memory.
    TlsConnection connection(int socket) const;

private:
    std::unique_ptr<ssl_ctx_st, TlsCloser> context_;
};

} // namespace vxcam

#endif
