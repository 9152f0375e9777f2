// The whole contents of a file, for tests that look at what a program wrote.
#ifndef ZQ_TESTS_SUPPORT_FILECONTENTS_H_
#define ZQ_TESTS_SUPPORT_FILECONTENTS_H_

#include <string>

// Every byte of the file at `path`; empty when it cannot be read.
std::string ReadFile(const std::string& path);

#endif  // ZQ_TESTS_SUPPORT_FILECONTENTS_H_
