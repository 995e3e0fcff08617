#include "support/certificates.h"

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <stdexcept>

namespace support {

namespace {

void check(bool done, const char* what)
{
    if (!done)
        throw std::runtime_error(std::string("certificate: ") + what);
}

void extend(X509* certificate, X509* issuer, int kind, const std::string& value)
{
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
    check(extension && X509_add_ext(certificate, extension, -1), value.c_str());
    X509_EXTENSION_free(extension);
}

std::string alternative_names(const std::vector<std::string>& hosts)
{
    std::string list;
    for (const std::string& host : hosts) {
        bool address = host.find_first_not_of("0123456789.") == host.npos || host.find(':') != host.npos;
        list += (list.empty() ? "" : ",") + std::string(address ? "IP:" : "DNS:") + host;
    }
    return list;
}

template <typename Write>
void write_pem(const std::string& path, Write write)
{
    FILE* file = fopen(path.c_str(), "w");
    check(file && write(file), path.c_str());
    fclose(file);
}

} // namespace

CertificateAuthority::Key CertificateAuthority::new_key()
{
    Key key(EVP_EC_gen("P-256"));
    check(key != nullptr, "no key");
    return key;
}

CertificateAuthority::CertificateAuthority(const std::string& name) : m_key(new_key())
{
    m_certificate = unsigned_certificate(m_key.get(), name, {});
    X509_set_issuer_name(m_certificate.get(), X509_get_subject_name(m_certificate.get()));
    extend(m_certificate.get(), m_certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    extend(m_certificate.get(), m_certificate.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
    extend(m_certificate.get(), m_certificate.get(), NID_subject_key_identifier, "hash");
    check(X509_sign(m_certificate.get(), m_key.get(), EVP_sha256()) > 0, "not signed");
    m_own = save(m_certificate.get(), m_key.get());
}

CertificateAuthority::X CertificateAuthority::unsigned_certificate(EVP_PKEY* key, const std::string& name,
                                                                   Validity validity)
{
    X certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), ++m_serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), validity.from);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), validity.to);
    check(X509_set_pubkey(certificate.get(), key), "no key set");
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    return certificate;
}

Certificate CertificateAuthority::issue(const std::vector<std::string>& hosts, Validity validity)
{
    Key key = new_key();
    X certificate = unsigned_certificate(key.get(), hosts.at(0), validity);
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(m_certificate.get()));
    extend(certificate.get(), m_certificate.get(), NID_subject_alt_name, alternative_names(hosts));
    extend(certificate.get(), m_certificate.get(), NID_authority_key_identifier, "keyid:always");
    check(X509_sign(certificate.get(), m_key.get(), EVP_sha256()) > 0, "not signed");
    return save(certificate.get(), key.get());
}

Certificate CertificateAuthority::self_signed(const std::vector<std::string>& hosts, Validity validity)
{
    Key key = new_key();
    X certificate = unsigned_certificate(key.get(), hosts.at(0), validity);
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(certificate.get()));
    extend(certificate.get(), certificate.get(), NID_subject_alt_name, alternative_names(hosts));
    check(X509_sign(certificate.get(), key.get(), EVP_sha256()) > 0, "not signed");
    return save(certificate.get(), key.get());
}

Certificate CertificateAuthority::save(X509* certificate, EVP_PKEY* key)
{
    std::string name = m_folder.file(std::to_string(m_serial));
    Certificate saved{name + ".pem", name + ".key"};
    write_pem(saved.file, [&](FILE* file) { return PEM_write_X509(file, certificate); });
    write_pem(saved.key_file,
              [&](FILE* file) { return PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr); });
    return saved;
}

} // namespace support
