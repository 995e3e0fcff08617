// The form that an upload posts, and the layout of the lines in it: shared by clients and servers.
//
// Servers and the command include this header only; the functions that it calls are exported.
#pragma once

#include <map>
#include <string>

#include "AnalyticsSDK/Identity.h"
#include "AnalyticsSDK/Utilities.h"

namespace AnalyticsSDK {

/// Version of the layout of event lines, their first element: servers tell layouts apart by it.
inline constexpr int line_layout_version = 3;

/// Names of the fields. Every upload has the first four.
namespace UploadField {
inline constexpr char data[] = "data";    ///< the event lines
inline constexpr char unique_id[] = "g";  ///< of the installation that sends
inline constexpr char token[] = "t";      ///< shows that the client knows how to hash the unique id
inline constexpr char version[] = "v";    ///< of the application
inline constexpr char batch[] = "b";      ///< the batch that the lines belong to
inline constexpr char dropped[] = "d";    ///< how many lines, from the first one on, were thrown away
inline constexpr char lines[] = "n";      ///< how many lines there are in this request
inline constexpr char first_line[] = "o"; ///< number of the first one within its batch
inline constexpr char sent_at[] = "s";    ///< milliseconds since 1970 UTC
} // namespace UploadField

using UploadFields = std::map<std::string, std::string>;

/// A token for an id, different each time. @return empty when there is no memory or no randomness for it
inline std::string UploadToken(const char* id)
{
    scoped_array<unsigned char> hash;
    long length = 0;
    std::string token;
    if (GenerateHash(id, hash, length))
        BytesToString(hash.Get(), length, token);
    return token;
}

/// The library's uploads: the first four fields. @param text is used up: it may be large
UploadFields UploadForm(const char* id, const std::string& version, std::string&& text);

} // namespace AnalyticsSDK
