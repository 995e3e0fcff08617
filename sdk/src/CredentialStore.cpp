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
/// Where GetUserCredentials notes the record that it returns to this thread; null unless this thread is copying one.
constinit thread_local Loan* t_pLoan = nullptr;

/// The record that a CCredentialStore last returned to this thread. Its pointer alone is not enough to read the login:
/// another thread may destroy the record at any moment.
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

// Resizing to the capacity does not reallocate, so every byte of the memory can be overwritten.
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
        // Before the assignment, which may allocate a new block and release the old one unwiped.
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

// Always five stars: the length of a password is a secret too.
std::string DescribeCredentials(const CUserCredentials& credentials)
{
    return credentials.strUserName + ":*****";
}

CUserCredentialsMap::CUserCredentialsMap() = default;

CUserCredentialsMap::~CUserCredentialsMap()
{
    clear();
}

// Hides clear() of the base class, which would leak the records.
void CUserCredentialsMap::clear()
{
    for (auto& [proxy, credentials] : *this)
        delete credentials;
    std::map<std::string, CUserCredentials*>::clear();
}

ICredentialStore::~ICredentialStore() = default;

// No lock is held while a store is called: a derived one may take its own, or ask the user.
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

// Here and below an unknown proxy leaves an entry without a record; the header says why.
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

// Looked up again: another thread may have replaced the record since it was returned.
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
    // The virtual operation, which takes the recursive lock again: a derived store must see every removal.
    RemoveCredentials(proxy);
    // The entry is made first, which may throw: until it exists, the caller's pointer still owns the record.
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
