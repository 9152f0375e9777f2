// Darwin's <xlocale.h>: the locale-taking forms of the C library's
// conversions, which the C++ library uses on macOS.
#ifndef ZQ_MACOS_SDK_XLOCALE_H_
#define ZQ_MACOS_SDK_XLOCALE_H_

#include <ctype.h>
#include <locale.h>
#include <stddef.h>

// Functions on macOS, where glibc has macros that reach into its locale.
#undef isdigit_l
#undef isxdigit_l

#ifdef __cplusplus
extern "C" {
#endif

long long strtoll_l(const char* text, char** end, int base, locale_t locale);
unsigned long long strtoull_l(const char* text, char** end, int base, locale_t locale);
float strtof_l(const char* text, char** end, locale_t locale);
double strtod_l(const char* text, char** end, locale_t locale);
long double strtold_l(const char* text, char** end, locale_t locale);
int snprintf_l(char* buffer, size_t size, locale_t locale, const char* format, ...);
int asprintf_l(char** result, locale_t locale, const char* format, ...);
int sscanf_l(const char* text, locale_t locale, const char* format, ...);

#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_XLOCALE_H_
