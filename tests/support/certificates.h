// Certificates made on the spot, so that no test depends on a file that expires.
#pragma once

#include "support/scratch.h"

#include <memory>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <string>
#include <vector>

namespace support {

struct Certificate
{
    std::string file;     ///< PEM
    std::string key_file; ///< PEM, without a password
};

/// When a certificate holds, in seconds from now.
struct Validity
{
    long from = -3600;
    long to = 24 * 3600;
};

inline constexpr Validity expired{-7200, -3600};
inline constexpr Validity not_yet_valid{24 * 3600, 48 * 3600};

/// A certificate authority of its own. Its files live as long as it does.
class CertificateAuthority
{
public:
    explicit CertificateAuthority(const std::string& name = "Test Authority");

    /// What a client trusts: this authority's certificate (PEM).
    std::string file() const { return m_own.file; }
    /// A server certificate for host names or IP addresses, for example {"localhost", "127.0.0.1"}.
    Certificate issue(const std::vector<std::string>& hosts, Validity validity = {});
    /// One that no authority signed.
    Certificate self_signed(const std::vector<std::string>& hosts, Validity validity = {});

private:
    struct Free
    {
        void operator()(X509* certificate) const { X509_free(certificate); }
        void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    };
    using Key = std::unique_ptr<EVP_PKEY, Free>;
    using X = std::unique_ptr<X509, Free>;

    static Key new_key();
    X unsigned_certificate(EVP_PKEY* key, const std::string& name, Validity validity);
    Certificate save(X509* certificate, EVP_PKEY* key);

    ScratchFolder m_folder;
    int m_serial = 0;
    Key m_key;
    X m_certificate;
    Certificate m_own;
};

} // namespace support
