#include "ShellQuoting.h"

#include <gtest/gtest.h>

#include <string>

#include "TaskWrapper.h"

namespace {

// The words /bin/sh makes of `commandLine`, each in angle brackets.
std::string WordsOf(const std::string& commandLine) {
  return TaskWrapper::runScript("printf '<%s>' " + commandLine).response().value_or("(not UTF-8)");
}

TEST(ShellQuotingTest, EachQuotedTextReachesTheProgramAsOneWordUnchanged) {
  EXPECT_EQ(WordsOf(EscapeBlanks("/Apps/Zq  Norvane .app/x")), "</Apps/Zq  Norvane .app/x>");
  EXPECT_EQ(WordsOf(EscapeBlanks("/plain/path")), "</plain/path>");
  const std::string texts[] = {
      "",
      "plain",
      "two words",
      "it's",
      "''",
      "$HOME `id` $(id) \"quoted\" \\ back\\slash",
      "semi; colon & amp | pipe > out < in * ? [a] ~ # !",
      "line\nbreak\ttab",
      "Zq Norvane – ünïcödé",
  };
  for (const std::string& text : texts) EXPECT_EQ(WordsOf(SingleQuoted(text)), "<" + text + ">") << text;
}

}  // namespace
