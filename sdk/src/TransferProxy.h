// The route of a transfer: through which proxy it goes, with which login, and what becomes of a proxy afterwards.
#pragma once

#include "AnalyticsSDK/CredentialStore.h"
#include "AnalyticsSDK/ProxyUtilities.h"
#include "CurlHandles.h"

namespace AnalyticsSDK::TransferProxy {

/// As WebClient::SetProxyToNextValidProxy. May throw std::bad_alloc, as may the others.
bool SetNext(CurlEasyHandle* pHandle, const char* url, IProxyManager* manager, ICredentialStore* store);

/// Bans the transfer's proxy when libcurl's result puts the blame on it. @return whether it is banned now
bool Ban(const CurlEasyHandle& handle, long result, IProxyManager* manager);

/// Remembers the transfer's proxy for the URL's host, unless one is remembered already. @return whether it had a proxy
bool Remember(const CurlEasyHandle& handle, const char* url, IProxyManager* manager);

} // namespace AnalyticsSDK::TransferProxy
