#include "util/ShellQuoting.h"

#include <gtest/gtest.h>

#include <string>

#include "system/TaskWrapper.h"

namespace {

TEST(ShellQuotingTest, SingleQuotedReachesTheProgramUnchanged) {
  EXPECT_EQ(SingleQuoted("it's"), "'it'\"'\"'s'");
  const std::string texts[] = {"",
                               "two words",
                               "it's",
                               "''",
                               "$HOME `id` $(id) \"quoted\" \\ back\\slash",
                               "semi; colon & amp | pipe > out < in * ? [a] ~ # !",
                               "line\nbreak\ttab",
                               "ünïcödé"};
  for (const std::string& text : texts)
    EXPECT_EQ(TaskWrapper::runScript("printf '<%s>' " + SingleQuoted(text)).response(), "<" + text + ">") << text;
}

}  // namespace
