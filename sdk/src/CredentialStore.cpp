#include "AnalyticsSDK/CredentialStore.h"

#include "Secret.h"

#include <openssl/crypto.h>

namespace AnalyticsSDK {
namespace {

bool IsEmpty(const char* text)
{
    return text == nullptr || *text == '\0';
}

struct Loan;
/// Where this thread wants the next loan noted; null when it copies nothing.
constinit thread_local Loan* t_pLoan = nullptr;

/// The record that a store of ours lent last to this thread, which made this. By the pointer alone the login could not
/// be read: a host's thread may destroy it at any moment.
struct Loan
{
    Loan() { t_pLoan = this; }
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;
    ~Loan() { t_pLoan = before; }

    Loan* const before = t_pLoan;
    CCredentialStore* store = nullptr;
    const CUserCredentials* record = nullptr;
    std::string key;
};

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

CUserCredentials::CUserCredentials(std::string_view userName, std::string_view password)
    : strUserName(userName), strPassword(password)
{}

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

// No lock is held while a store is asked: one that derives from ours may take its own, or ask the user.
bool ICredentialStore::CopyUserCredentials(const char* proxy, CUserCredentials& out)
{
    if (IsEmpty(proxy) || !HasCredentials(proxy))
        return false;
    const Loan loan;
    const CUserCredentials* record = GetUserCredentials(proxy);
    if (record == nullptr)
        return false;
    if (record == loan.record)
        return loan.store->CopyStored(loan.key, out);
    out = *record;
    return true;
}

CCredentialStore::CCredentialStore() = default;
CCredentialStore::~CCredentialStore() = default;

// An unknown proxy leaves an entry without a record behind, which reads as no login; that is meant, here and below.
bool CCredentialStore::HasCredentials(const char* proxy)
{
    if (IsEmpty(proxy))
        return false;
    lumo::scoped_lock hold(lock);
    return mapCredentials[proxy] != nullptr;
}

CUserCredentials* CCredentialStore::GetUserCredentials(const char* proxy)
{
    if (IsEmpty(proxy))
        return nullptr;
    lumo::scoped_lock hold(lock);
    CUserCredentials* record = mapCredentials[proxy];
    if (t_pLoan != nullptr) {
        t_pLoan->key = proxy;
        t_pLoan->store = this;
        t_pLoan->record = record;
    }
    return record;
}

// The record as it is now: a host's thread may have replaced it since it was lent.
bool CCredentialStore::CopyStored(const std::string& key, CUserCredentials& out)
{
    lumo::scoped_lock hold(lock);
    const CUserCredentials* record = mapCredentials[key];
    if (record != nullptr)
        out = *record;
    return record != nullptr;
}

bool CCredentialStore::AddCredentials(const char* proxy, scoped_ptr<CUserCredentials> credentials)
{
    if (IsEmpty(proxy) || !credentials)
        return false;
    lumo::scoped_lock hold(lock);
    // The virtual one, under the lock that it takes again: a derived store hears of every record that goes.
    RemoveCredentials(proxy);
    // The entry first, which may need memory: until it stands, the record is still owned.
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

} // namespace AnalyticsSDK
