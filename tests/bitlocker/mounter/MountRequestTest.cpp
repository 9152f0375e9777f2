#include "MountRequest.h"

#include <gtest/gtest.h>

namespace {

TEST(MountRequestTest, ReadsTheThreeWordsAndEachOption) {
  MountRequest request;
  std::string error;
  ASSERT_TRUE(ParseMountRequest({"/dev/loop3", "/media/a b", ",raw,,uid=501,gid=20,umask=027,"}, &request, &error))
      << error;
  EXPECT_EQ(request.rawDevice + "|" + request.mountPoint, "/dev/loop3|/media/a b");
  EXPECT_TRUE(request.raw);
  EXPECT_EQ(std::vector<unsigned>({request.uid, request.gid, request.umask}), std::vector<unsigned>({501, 20, 027}));
  ASSERT_TRUE(ParseMountRequest({"/dev/loop3", "/m", ""}, &request, &error)) << error;
  EXPECT_FALSE(request.raw);
  EXPECT_EQ(request.umask, 077u) << "by default what is served is the owner's alone";
  EXPECT_EQ(request.uid, 0u);
}

TEST(MountRequestTest, RefusesWhatWouldBeMisread) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"/dev/loop3", "/m", "raw", "a credential is never a word"},
           {"", "/m", "raw"},
           {"/dev/loop3", "", "raw"},
           {"/dev/loop3", "/m", "RAW"},
           {"/dev/loop3", "/m", "raw=1"},
           {"/dev/loop3", "/m", "uid="},
           {"/dev/loop3", "/m", "uid=-1"},
           {"/dev/loop3", "/m", "uid=4294967295"},
           {"/dev/loop3", "/m", "gid=12x"},
           {"/dev/loop3", "/m", "umask=1000"},
           {"/dev/loop3", "/m", "umask=8"}}) {
    MountRequest request;
    std::string error;
    EXPECT_FALSE(ParseMountRequest(words, &request, &error)) << words.size() << " words, options " << words[2];
    EXPECT_FALSE(error.empty());
  }
}

}  // namespace
