// Strict UTF-8 validation, as the platform's string decoding applies it to
// the output of child processes and to the text fields of command records,
// and UTF-8 encoding of one code point.
#ifndef ZQ_UTIL_UTF8_H_
#define ZQ_UTIL_UTF8_H_

#include <string>
#include <string_view>

// True when `bytes` is well-formed UTF-8: no stray or missing continuation
// bytes, no overlong forms, no surrogates, nothing above U+10FFFF.
bool IsValidUtf8(std::string_view bytes);

// Appends `point` to *text in UTF-8; `point` must be a Unicode scalar value.
void AppendUtf8(char32_t point, std::string* text);

#endif  // ZQ_UTIL_UTF8_H_
