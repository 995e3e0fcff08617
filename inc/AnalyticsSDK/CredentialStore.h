// User names and passwords for proxies, in memory only.
//
// A proxy is named exactly as the proxy manager hands it out and as IProgressCallback::OnProxyAuthenticationError
// reports it: a text with other letters, or without the port, names another proxy. Any thread may use a store. The
// library adds nothing by itself. A password is overwritten in memory when its record is destroyed, and never appears
// in messages.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "lumo/mutex.h"
#include "lumo/scoped_ptr.h"
#include "lumo/tova/base.h"

namespace AnalyticsSDK {

using lumo::scoped_ptr;

/// A login. A record is used by one thread at a time.
///
/// The password is held in clear until the record is destroyed, which overwrites it. The caller overwrites the text
/// that it was copied from, and the old text before assigning a new one.
class TOVA_API CUserCredentials
{
public:
    /// An empty login.
    CUserCredentials();
    /// Copies both texts.
    CUserCredentials(std::string_view userName, std::string_view password);
    /// Copies the password too.
    CUserCredentials(const CUserCredentials&);
    /// Overwrites the password held before.
    CUserCredentials& operator=(const CUserCredentials&);
    ~CUserCredentials();

    std::string strUserName; ///< UTF-8; any character, a colon included
    std::string strPassword; ///< UTF-8, in clear; may be empty
};

/// A login as text for people and logs: the user name, ":" and five stars in place of the password.
TOVA_API std::string DescribeCredentials(const CUserCredentials& credentials);

/// Logins by proxy; owns them. It has no lock of its own: the store has one.
class TOVA_API CUserCredentialsMap : public std::map<std::string, CUserCredentials*>
{
public:
    CUserCredentialsMap();
    CUserCredentialsMap(const CUserCredentialsMap&) = delete;
    CUserCredentialsMap& operator=(const CUserCredentialsMap&) = delete;
    /// Destroys every record.
    ~CUserCredentialsMap();

    /// Destroys every record and empties the map.
    void clear();
};

/// Logins by proxy, implemented by the host or by CCredentialStore. The order of the virtual operations is part of the
/// binary interface. Every operation answers false or null for a null or empty proxy.
///
/// Transfers ask before each attempt, on the web client's thread or on that of a synchronous request, and hold no lock.
class TOVA_API ICredentialStore
{
public:
    virtual ~ICredentialStore();

    /// Whether there is a login for the proxy.
    virtual bool HasCredentials(const char* proxy) = 0;

    /// Returns the record, which stays the store's; null when there is none. The pointer is valid until any thread
    /// replaces or removes the record. For a CCredentialStore, CopyUserCredentials has no such limit.
    virtual CUserCredentials* GetUserCredentials(const char* proxy) = 0;

    /// Takes a record over, in place of an older one, which is destroyed.
    ///
    /// @param proxy whose login it is
    /// @param credentials the record, given with std::move; destroyed when it is refused
    /// @return false when proxy or record is missing
    virtual bool AddCredentials(const char* proxy, scoped_ptr<CUserCredentials> credentials) = 0;

    /// Destroys the record, if any. @return true, also when there was none
    virtual bool RemoveCredentials(const char* proxy) = 0;

    /// Copies the record that GetUserCredentials returns when HasCredentials is true. Transfers call this one.
    ///
    /// With a CCredentialStore, or a class derived from it, other threads may replace or remove the record meanwhile.
    /// Any other store must keep the record unchanged until this returns.
    /// @param proxy whose login is wanted
    /// @param out receives the copy, which is the caller's
    /// @return false, and no change, when there is none
    bool CopyUserCredentials(const char* proxy, CUserCredentials& out);
};

/// The library's credential store: one recursive lock around a map. Looking up an unknown proxy with HasCredentials or
/// GetUserCredentials leaves an empty entry, which counts as no login. Deliberate: derived stores may iterate over the
/// map and have always found every proxy that was asked for. Nothing is ever written to a file.
class TOVA_API CCredentialStore : public ICredentialStore
{
public:
    CCredentialStore();
    /// Destroys, and so overwrites, every login.
    ~CCredentialStore() override;

    bool HasCredentials(const char* proxy) override;
    CUserCredentials* GetUserCredentials(const char* proxy) override;
    bool AddCredentials(const char* proxy, scoped_ptr<CUserCredentials> credentials) override;
    bool RemoveCredentials(const char* proxy) override;

private:
    friend class ICredentialStore;
    bool CopyStored(const std::string& key, CUserCredentials& out);

    CUserCredentialsMap mapCredentials LUMO_GUARDED_BY(lock);
    lumo::mutex lock{lumo::mutex::recursive};
};

} // namespace AnalyticsSDK
