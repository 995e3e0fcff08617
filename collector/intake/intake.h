// From the bytes of a request's body to an upload with its rows. Plain functions: no socket, no clock, no store,
// nothing kept between two calls but a parser's memory, so each of them can be called from any thread and fuzzed as it
// stands.
//
// The order in which a server calls them, cheapest first: check_headers when the header is there, unpack and read_form
// when the body is, check_token (0.65 ms of processor time: after rates and keys), read_lines; then Writer::submit.
#pragma once

#include "store/upload.h"

#include <functional>

namespace intake {

struct Limits
{
    size_t line = 65536;            ///< bytes of a line; a longer one is a reject. 0: no limit
    size_t body = 16 * 1024 * 1024; ///< bytes of a body as sent, and again as unpacked. 0: no limit
};

/// Why a request is not taken: the status and one sentence for the answer's body.
struct Refusal
{
    int status = 0;
    std::string sentence;
};
using Refused = std::optional<Refusal>;

enum class Encoding
{
    identity,
    gzip
};

/// Judges Content-Type and Content-Encoding, as they stand in the header ("" for one that is missing). Letters of
/// either case; parameters behind a ";" of the type are ignored.
/// @return 400 for another type than application/x-www-form-urlencoded, 415 for an encoding but gzip and identity
Refused check_headers(std::string_view content_type, std::string_view content_encoding, Encoding& encoding);

/// Asked before memory is taken for an unpacked body; false ends the work with 503. May be empty.
using Charge = std::function<bool(size_t bytes)>;

/// Unpacks a body in place. Stops as soon as the limit is passed, however small the packed form is.
/// @return 400 for broken or cut gzip, or bytes behind it that are no gzip; 413 past the limit; 503 when `charge`
/// refuses
Refused unpack(std::string& body, Encoding encoding, const Limits& limits, const Charge& charge = {});

/// The fields of the form, decoded.
struct Form
{
    std::string data, sender, token, version; ///< `data`, `g`, `t`, `v`
    std::optional<store::BatchId> batch;      ///< `b`; an empty one counts as none
    uint32_t first_line = 0;                  ///< `o`
    std::optional<uint32_t> lines;            ///< `n`
    uint32_t dropped = 0;                     ///< `d`
};

/// Takes the form apart. Fields in any order; those it does not know are ignored; "+" stands for a blank.
/// @param body  is used up
/// @return 400 for a broken escape, a field twice, `data`, `g`, `t` or `v` missing, a `b` that is not 32 lower-case
///         hexadecimal digits, `o`, `n`, `d` that are no plain decimal below 2^31, `g` or `v` over 1,024 bytes, lines
///         together with `d`
Refused read_form(std::string&& body, Form& form);

/// Whether `token` is the hash of `sender` that the library makes: 112 hexadecimal digits. The dear step.
/// @return 403 when it is not
Refused check_token(std::string_view sender, std::string_view token);

/// Reads the lines: an upload ready for a store.
/// @param form         is used up; the upload takes its texts over
/// @param application  the only one that lines may be of; none: any
/// @param received_at  milliseconds since 1970 UTC
/// @return 403 when an event is of another application
Refused read_lines(Form&& form, const std::optional<std::string>& application, store::Milliseconds received_at,
                   const Limits& limits, store::Upload& upload);

} // namespace intake
