// Certificates made on the spot, so that no test depends on a file that expires.
#pragma once

#include "support/scratch.h"

#include <string>
#include <vector>

namespace support {

struct Certificate
{
    std::string file;     ///< PEM
    std::string key_file; ///< PEM, without a password
};

/// When a certificate holds: YYYYMMDDhhmmssZ.
struct Validity
{
    const char* from = "20200101000000Z";
    const char* to = "20991231000000Z";
};

inline constexpr Validity expired{"20200101000000Z", "20210101000000Z"};
inline constexpr Validity not_yet_valid{"20980101000000Z", "20991231000000Z"};

/// A certificate authority of its own. Its files live as long as it does.
class CertificateAuthority
{
public:
    explicit CertificateAuthority(const std::string& name = "Test Authority");

    /// What a client trusts: this authority's certificate (PEM).
    std::string file() const { return m_own.file; }
    /// A server certificate for host names or IPv4 addresses, for example {"localhost", "127.0.0.1"}.
    Certificate issue(const std::vector<std::string>& hosts, Validity validity = {});
    /// One that no authority signed.
    Certificate self_signed(const std::vector<std::string>& hosts);

private:
    /// Makes a key, and with it what the further options say: a certificate, or a request for one.
    Certificate make(const std::string& name, const std::vector<std::string>& more);

    ScratchFolder m_folder;
    int m_serial = 0;
    Certificate m_own;
};

} // namespace support
