// What every header of the portability layer uses: the export macro, the version stamp and the assertion.
//
// `tova` is plain C over the operating system: functions `tova_<object>_<operation>` on records that the caller owns.
// A record is zero-filled and stamped by its create operation and lives where the caller put it; the layer neither
// allocates nor moves it. Text is narrow, NUL-terminated UTF-8. Booleans are int32_t, 1 for yes and 0 for no.
#pragma once

#include <stddef.h>
#include <stdint.h>

/// Marks what the shared library exports; everything else is hidden.
#define TOVA_API __attribute__((visibility("default")))

/// Lets the compiler check a printf format against its arguments. `text` is the place of the format among the
/// parameters and `first` that of the first argument, counted from 1; 0 for a va_list.
#define TOVA_PRINTF(text, first) __attribute__((format(printf, text, first)))

#ifdef __cplusplus
/// Opens a stretch of declarations that C and C++ share.
#define TOVA_C_BEGIN extern "C" {
/// Closes it.
#define TOVA_C_END }
/// What a parameter is when a C++ caller leaves it out; C callers name it.
#define TOVA_DEFAULT(value) = value
#else
#define TOVA_C_BEGIN
#define TOVA_C_END
#define TOVA_DEFAULT(value)
#endif

TOVA_C_BEGIN

/// The version stamp. Create operations write it into the first field of a record, destroy operations clear it, and
/// every operation checks it: a record that was never created, or was destroyed, is caught at once.
enum
{
    tova_version = 0x110
};

/// Prints "file:number: failed assertion `expression'" to standard error and aborts. Called by the two macros below.
TOVA_API void tova_assert_failed(const char* file, unsigned number, const char* expression)
    __attribute__((noreturn, cold));

TOVA_C_END

/// The one assertion of the library; it stays active in release builds.
///
/// For misuse, and for errors of the platform that leave nothing to go on with; an expected failure is a result, never
/// an assertion. The file is named by its path in the repository, wherever it was built. The expression is evaluated
/// once.
#define tova_assert(expr) ((expr) ? (void)0 : tova_assert_failed(__FILE__, __LINE__, #expr))

/// The same with a fixed number in place of the line: crash reports of hosts are matched by file and number, which must
/// not change when lines are added above.
#define tova_assert_at(number, expr) ((expr) ? (void)0 : tova_assert_failed(__FILE__, number, #expr))
