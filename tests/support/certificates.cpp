#include "support/certificates.h"

#include "support/child.h"

#include <stdexcept>

namespace support {
namespace {

void openssl(std::vector<std::string> words)
{
    words.insert(words.begin(), "openssl");
    const Ended ended = run(std::move(words));
    if (ended.status != 0)
        throw std::runtime_error(ended.errors);
}

std::string alternative_names(const std::vector<std::string>& hosts)
{
    std::string list;
    for (const std::string& host : hosts) {
        const bool address = host.find_first_not_of("0123456789.") == host.npos;
        list += (list.empty() ? "subjectAltName=" : ",") + std::string(address ? "IP:" : "DNS:") + host;
    }
    return list;
}

} // namespace

CertificateAuthority::CertificateAuthority(const std::string& name)
{
    const std::string folder = m_folder.path();
    write_file(m_folder.file("index"), "");
    write_file(m_folder.file("conf"), "[req]\ndistinguished_name = none\n[none]\n[ca]\ndefault_ca = own\n"
                                      "[any]\ncommonName = supplied\n"
                                      "[own]\npolicy = any\ndefault_md = sha256\ncopy_extensions = copy\n"
                                      "unique_subject = no\nrand_serial = yes\nnew_certs_dir = " +
                                          folder + "\ndatabase = " + folder + "/index\n");
    m_own = make(name, {"-x509", "-addext", "basicConstraints=critical,CA:TRUE"});
}

Certificate CertificateAuthority::make(const std::string& name, const std::vector<std::string>& more)
{
    const std::string files = m_folder.file(std::to_string(++m_serial));
    const Certificate made{files + ".pem", files + ".key"};
    std::vector<std::string> words{
        "req",    "-config", m_folder.file("conf"), "-newkey", "ec",          "-pkeyopt", "ec_paramgen_curve:P-256",
        "-nodes", "-subj",   "/CN=" + name,         "-keyout", made.key_file, "-out",     made.file};
    words.insert(words.end(), more.begin(), more.end());
    openssl(words);
    return made;
}

Certificate CertificateAuthority::issue(const std::vector<std::string>& hosts, Validity validity)
{
    const Certificate asked = make(hosts.at(0), {"-addext", alternative_names(hosts)});
    const Certificate made{asked.file + ".signed", asked.key_file};
    openssl({"ca", "-config", m_folder.file("conf"), "-batch", "-notext", "-cert", m_own.file, "-keyfile",
             m_own.key_file, "-startdate", validity.from, "-enddate", validity.to, "-in", asked.file, "-out",
             made.file});
    return made;
}

Certificate CertificateAuthority::self_signed(const std::vector<std::string>& hosts)
{
    return make(hosts.at(0), {"-x509", "-addext", alternative_names(hosts)});
}

} // namespace support
