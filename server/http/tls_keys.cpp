#include "http/tls_keys.h"

#include "http/special_file.h"

#include <vxcamkit/error.h>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sys/stat.h>

namespace vxcam {

namespace {

[[noreturn]] void refuse(const std::string& text)
{
    throw Error(ErrorKind::Usage, "--tls: " + text);
}

void requireReadable(const std::string& path)
{
    if (isSpecialFile(path)) {
        throw Error(ErrorKind::File, "--tls: " + path + ": cannot be read: it is no regular file",
                    EINVAL);
    }
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (file && file.peek() != std::ifstream::traits_type::eof()) return;
    const int error = errno;
    const std::string why = error != 0 ? std::strerror(error) : "it is empty";
    throw Error(ErrorKind::File, "--tls: " + path + ": cannot be read: " + why, error);
}

// A group may read it: that is how a key is shared by servers that are not root.
void requireSecret(const std::string& path)
{
    struct stat facts {};
    if (::stat(path.c_str(), &facts) != 0 || (facts.st_mode & S_IRWXO) == 0) return;
    refuse(path + ": holds the key, and everybody can read it; chmod 640 helps");
}

// What OpenSSL has to say, for people.
std::string trouble()
{
    const unsigned long code = ERR_peek_last_error();
    const char* const text = ERR_reason_error_string(code);
    ERR_clear_error();
    return text != nullptr ? text : "no reason is told";
}

// Nobody is there to type a passphrase.
int refusePassphrase(char*, int, int, void* wasAsked)
{
    *static_cast<bool*>(wasAsked) = true;
    return -1;
}

} // namespace

void TlsCloser::operator()(ssl_ctx_st* context) const
{
    SSL_CTX_free(context);
}

void TlsCloser::operator()(ssl_st* connection) const
{
    SSL_free(connection);
}

TlsKeys::TlsKeys(const std::string& certificate, const std::string& key)
    : context_(SSL_CTX_new(TLS_server_method()))
{
    if (!context_) refuse("OpenSSL does not start: " + trouble());
    SSL_CTX* const context = context_.get();
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION |
                                     SSL_OP_CIPHER_SERVER_PREFERENCE |
                                     SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_RELEASE_BUFFERS |
                                  SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    bool isSecret = false;
    SSL_CTX_set_default_passwd_cb(context, refusePassphrase);
    SSL_CTX_set_default_passwd_cb_userdata(context, &isSecret);
    requireReadable(certificate);
    requireReadable(key);
    ERR_clear_error();
    if (SSL_CTX_use_certificate_chain_file(context, certificate.c_str()) != 1) {
        refuse(certificate + ": is no certificate in PEM: " + trouble());
    }
    if (SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) != 1) {
        const int reason = ERR_GET_REASON(ERR_peek_last_error());
        if (isSecret) refuse(key + ": has a passphrase, for which nobody can be asked");
        if (reason == X509_R_KEY_VALUES_MISMATCH || reason == X509_R_KEY_TYPE_MISMATCH) {
            refuse(key + ": is not the key of " + certificate);
        }
        refuse(key + ": is no key in PEM: " + trouble());
    }
    SSL_CTX_set_default_passwd_cb_userdata(context, nullptr);
    if (SSL_CTX_check_private_key(context) != 1) refuse(key + ": is not the key of " + certificate);
    requireSecret(key);
}

TlsConnection TlsKeys::connection(int socket) const
{
    TlsConnection connection(SSL_new(context_.get()));
    if (!connection || SSL_set_fd(connection.get(), socket) != 1) return nullptr;
    SSL_set_accept_state(connection.get());
    return connection;
}

} // namespace vxcam
