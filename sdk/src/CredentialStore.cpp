#include "AnalyticsSDK/CredentialStore.h"

#include "Secret.h"

#include <openssl/crypto.h>

namespace AnalyticsSDK {
namespace {

bool IsEmpty(const char* text)
{
    return text == nullptr || *text == '\0';
}

} // namespace

// Growing to the capacity never moves the text, so every byte that it occupies is in reach.
void WipeText(std::string& text) noexcept
{
    text.resize(text.capacity());
    OPENSSL_cleanse(text.data(), text.size());
    text.clear();
}

CUserCredentials::CUserCredentials() = default;
CUserCredentials::CUserCredentials(const CUserCredentials&) = default;

CUserCredentials& CUserCredentials::operator=(const CUserCredentials& other)
{
    if (this != &other) {
        // Before the assignment, which may take a new block and give the old one back as it stands.
        WipeText(strPassword);
        strUserName = other.strUserName;
        strPassword = other.strPassword;
    }
    return *this;
}

CUserCredentials::~CUserCredentials()
{
    WipeText(strPassword);
}

// Five stars whatever the password: its length is nobody's business either.
std::string DescribeCredentials(const CUserCredentials& credentials)
{
    return credentials.strUserName + ":*****";
}

CUserCredentialsMap::CUserCredentialsMap() = default;

CUserCredentialsMap::~CUserCredentialsMap()
{
    clear();
}

// Hides the base's, which would drop the pointers and leak the records.
void CUserCredentialsMap::clear()
{
    for (auto& [proxy, credentials] : *this)
        delete credentials;
    std::map<std::string, CUserCredentials*>::clear();
}

ICredentialStore::~ICredentialStore() = default;
CCredentialStore::CCredentialStore() = default;
CCredentialStore::~CCredentialStore() = default;

bool CCredentialStore::HasCredentials(const char* proxy)
{
    return GetUserCredentials(proxy) != nullptr;
}

// An unknown proxy leaves an entry without a record behind, which reads as no login; that is meant.
CUserCredentials* CCredentialStore::GetUserCredentials(const char* proxy)
{
    if (IsEmpty(proxy))
        return nullptr;
    lumo::scoped_lock hold(lock);
    return mapCredentials[proxy];
}

bool CCredentialStore::AddCredentials(const char* proxy, scoped_ptr<CUserCredentials>& credentials)
{
    if (IsEmpty(proxy) || !credentials)
        return false;
    lumo::scoped_lock hold(lock);
    // The virtual one, under the lock that it takes again: a derived store hears of every record that goes.
    RemoveCredentials(proxy);
    // The entry first, which may need memory: until it stands, the caller keeps the record.
    CUserCredentials*& record = mapCredentials[proxy];
    record = credentials.Detach();
    return true;
}

bool CCredentialStore::RemoveCredentials(const char* proxy)
{
    if (IsEmpty(proxy))
        return false;
    lumo::scoped_lock hold(lock);
    auto entry = mapCredentials.find(proxy);
    if (entry != mapCredentials.end()) {
        delete entry->second;
        mapCredentials.erase(entry);
    }
    return true;
}

// What transfers use: a lent pointer could be destroyed by a host's thread while the login is being read.
bool CCredentialStore::CopyUserCredentials(const char* proxy, CUserCredentials& out)
{
    if (IsEmpty(proxy))
        return false;
    lumo::scoped_lock hold(lock);
    // Unlike the subscript of the others, a search leaves no empty entry for every proxy that a transfer asks about.
    auto entry = mapCredentials.find(proxy);
    if (entry == mapCredentials.end() || entry->second == nullptr)
        return false;
    out = *entry->second;
    return true;
}

} // namespace AnalyticsSDK
